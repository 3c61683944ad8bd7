// "kupdate trust": the publishers that an executor trusts.
#ifndef KUPDATE_TOOLS_KUPDATE_TRUST_COMMAND_H_
#define KUPDATE_TOOLS_KUPDATE_TRUST_COMMAND_H_

#include <CLI/App.hpp>

/// Adds "trust set" and "trust show". Both throw std::runtime_error with a text for people.
void AddTrustCommand(CLI::App* app);

#endif  // KUPDATE_TOOLS_KUPDATE_TRUST_COMMAND_H_
