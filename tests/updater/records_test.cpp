#include "updater/records.h"

#include "support/testing.h"

namespace {

TEST(RunRecord, TellsWhetherTheServiceServes) {
  updater::RunRecord record;
  record.pid = 7;
  record.program = "/a/service";
  record.arguments = {"--port", "0"};
  record.environment = {"A=\xC3\xA4"};
  record.build = "1.2";
  record.port = 8;
  for (const bool serving : {false, true}) {
    record.serving = serving;
    const auto read = updater::ParseRunRecord(updater::RunRecordText(record));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->serving, serving);
    EXPECT_EQ(updater::RunRecordText(*read), updater::RunRecordText(record));
  }
  // Older services do not say it, and have ports once they serve.
  const std::string older = R"({"arguments":[],"environment":[],"port":0,"ssl_port":)";
  EXPECT_FALSE(updater::ParseRunRecord(older + "0}")->serving);
  EXPECT_TRUE(updater::ParseRunRecord(older + "9}")->serving);
  EXPECT_FALSE(updater::ParseRunRecord(older)) << "half written";
}

}  // namespace
