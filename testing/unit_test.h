// Included by nearly every unit test: GoogleTest, tables, folders and the log.
#ifndef KUPDATE_TESTING_UNIT_TEST_H_
#define KUPDATE_TESTING_UNIT_TEST_H_

#include <gtest/gtest.h>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"

namespace fs = std::filesystem;

#endif  // KUPDATE_TESTING_UNIT_TEST_H_
