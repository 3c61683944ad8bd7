#include "executor/status_report.h"

#include <gtest/gtest.h>

#include "testing/table.h"

namespace {

StatusReport Sample() {
  AppStatus app;
  app.id = "my \"app\"\\\n";
  app.version = "1.2.3.4";
  app.nextCheck = 951'868'740;  // 29 February 2000
  app.nextPing = 5;
  app.blocksInWork = {0, 12};
  app.lastError = "E:\xFF";
  JobStatus job;
  job.id = "{1}";
  job.state = "BG_JOB_STATE_ERROR";
  job.purpose = "ping";
  job.appId = "b";
  job.error = 0x80190194;
  StatusReport report;
  report.program = "C:\\e.exe";
  report.version = "1.0.0.0";
  report.trust = "nothing";
  report.apps = {app};
  report.jobs = {job};
  return report;
}

}  // namespace

TEST(StatusReport, ReadsAsText) {
  EXPECT_EQ(ReadableStatus(Sample(), 10),
            "C:\\e.exe 1.0.0.0\n"
            "  installs          nothing\n"
            "  transfer service  does not answer\n"
            "\nApplication \"my \"app\"\\\n\"\n"
            "  version           1.2.3.4\n"
            "  executor          the default one\n"
            "  next check        2000-02-29 23:59 UTC\n"
            "  next ping         due now\n"
            "  update found      -\n"
            "  statistics wait   no\n"
            "  blocks in work    0, 12\n"
            "  last error        E:\xFF\n"
            "\nJob {1}\n"
            "  purpose           ping of b\n"
            "  state             BG_JOB_STATE_ERROR\n"
            "  created           1970-01-01 00:00 UTC\n"
            "  error             0x80190194\n");
}

TEST(StatusReport, IsValidJson) {
  EXPECT_EQ(JsonStatus(Sample()),
            R"({"program":"C:\\e.exe","version":"1.0.0.0","trust":"nothing",)"
            R"("serviceAnswers":false,"applications":[{"id":"my \"app\"\\\u000a",)"
            R"("version":"1.2.3.4","removed":false,"executor":"","nextCheck":951868740,)"
            R"("nextPing":5,"update":"","statisticsWait":false,"blocksInWork":[0,12],)"
            "\"lastError\":\"E:\xEF\xBF\xBD\"}],\"jobs\":[{\"id\":\"{1}\",\"purpose\":\"ping\","
            R"("appId":"b","state":"BG_JOB_STATE_ERROR","created":0,"error":2149122452}]})"
            "\n");
  EXPECT_EQ(JsonStatus({}), R"({"program":"","version":"","trust":"","serviceAnswers":false,)"
                            R"("applications":[],"jobs":[]})"
                            "\n");
}

TEST(StatusReport, TheLastErrorIsOneThatMatters) {
  const Table<std::string_view, std::string> table = {
      {"", ""},
      {"Log started at: 05.03.2011\n10:00:00 I:F(1): no E: here\n", ""},
      {"10:00:00 E:F(1): first\n10:00:01 E:G(2): last\n10:00:02 D:F(1): x\n", "E:G(2): last"},
      {"10:00:00 E:F(1): cut", "E:F(1): cut"},
      {"10:00:00 E:F(1): real\n10:00:01 E:R(5): Can't open key:  a\n"
       "10:00:01 E:R(5): Can't open file:  a\n",
       "E:F(1): real"},
  };
  table.Expect(LastErrorIn);
}
