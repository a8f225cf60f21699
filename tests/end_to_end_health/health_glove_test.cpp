// The command health on a glove: what the table says about worn joints, and what losing the glove does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/end_to_end/tool.h"
#include "tests/end_to_end_health/health_tool.h"
#include "tests/health/http_server.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil::test {

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kQuestion = "\nUpload for health certificate? [y/N] ";

TEST(HealthOfGlove, table_tells_the_worn_joints) {
  const LinkedGlove glove({"--hz", "100", "--serial", "TSL-R-000815", "--firmware", "2.11", "--defect",
                           "stuck:3", "--defect", "noisy:7:6", "--defect", "backlash:11:10"});
  const Finished done = run(health({"--port", glove.port(), "--frames", "400"}), 2 * kPatience);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_EQ(done.error, "");
  EXPECT_THAT(done.output, StartsWith("Collecting 400 frames for health analysis...\n"
                                      "\n"
                                      "Health check — TSL-R-000815  fw 2.11\n"
                                      "Frames analyzed: 400\n"));
  EXPECT_THAT(done.output, EndsWith(kQuestion));
  const std::vector<HealthRow> rows = health_rows(done.output);
  ASSERT_EQ(rows.size(), 20U);
  for (const HealthRow& row : rows) {
    SCOPED_TRACE("joint " + std::to_string(row.dof));
    if (row.dof == 3) {
      // The only joint that does not move: that is one dropout, and neither noise nor backlash.
      EXPECT_EQ(row.noise, 0.0);
      EXPECT_EQ(row.backlash, 0.0);
      EXPECT_EQ(row.dropouts, 1);
      EXPECT_EQ(row.score, 98);
      EXPECT_EQ(row.mark, "✓");
      continue;
    }
    // The others move, which counts as scatter.
    EXPECT_GT(row.noise, 50.0);
    EXPECT_EQ(row.mark, "✗");
    if (row.dof == 7 || row.dof == 11) {
      EXPECT_GT(row.backlash, 60.0);
      EXPECT_LE(row.score, 25);
    } else {
      EXPECT_LT(row.backlash, 40.0);
      EXPECT_GE(row.score, 30);
    }
  }
}

TEST(HealthOfGlove, left_glove_is_uploaded_as_left) {
  const HttpServer server(http_answer(200, R"({"certificate_url": "u"})"));
  const LinkedGlove glove({"--side", "left", "--serial", "TSL-L-000001"});
  const Finished done = run(health({"--port", glove.port(), "--frames", "30", "--upload"}, server.url()));
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  ASSERT_EQ(server.requests().size(), 1U);
  const std::string document = server.requests()[0].body;
  EXPECT_THAT(document, HasSubstr("  \"device_serial\": \"TSL-L-000001\",\n"));
  EXPECT_THAT(document, HasSubstr("  \"device_side\": \"L\",\n"));
  EXPECT_THAT(document, HasSubstr("  \"device_n_dofs\": 20,\n  \"frames_analyzed\": 30,\n"));
}

TEST(HealthOfGlove, glove_that_appears_late_is_analysed_under_its_own_name) {
  const TempDirectory directory;
  Process tool(health({"--port", directory.file("glove"), "--frames", "30"}));
  ASSERT_TRUE(tool.wait_for_output("Collecting 30 frames for health analysis...\n"));
  const GloveProgram glove(
      {"--link", directory.file("glove"), "--serial", "TSL-R-LATE", "--firmware", "5.6"});
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  EXPECT_THAT(tool.output(), HasSubstr("\nHealth check — TSL-R-LATE  fw 5.6\nFrames analyzed: 30\n"));
  EXPECT_EQ(health_rows(tool.output()).size(), 20U);
  tool.close_input();
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
}

TEST(HealthOfGlove, stale_frames_go_on_when_the_glove_is_unplugged) {
  LinkedGlove glove({"--hz", "50"});
  Process tool(health({"--port", glove.port(), "--frames", "100000"}));
  ASSERT_TRUE(tool.wait_for_output("Collecting 100000 frames for health analysis...\n"));
  // The tool alone does not end the collection: it has had frames, and goes on without.
  const std::uint64_t waits = voluntary_waits(tool.pid());
  ASSERT_TRUE(tool.wait_until([&] { return voluntary_waits(tool.pid()) >= waits + 60; }));
  glove.cut();
  EXPECT_FALSE(tool.wait_for_output(kQuestion, std::chrono::seconds(4)));
  tool.send_signal(SIGINT);
  ASSERT_TRUE(tool.wait_for_output(kQuestion));
  const std::vector<HealthRow> rows = health_rows(tool.output());
  ASSERT_EQ(rows.size(), 20U);
  // Every joint stands still in the stale frames.
  for (const HealthRow& row : rows) EXPECT_GE(row.dropouts, 1);
  tool.close_input();
  EXPECT_EQ(tool.wait(), (ExitStatus{0, 0}));
}

TEST(HealthOfGlove, collection_ends_on_stale_frames) {
  // Thirty frames and a second and a half of silence do not make the number; what comes after that does.
  const LinkedGlove glove({"--hz", "50", "--frames", "30", "--serial", "TSL-R-GONE"});
  const Finished done = run(health({"--port", glove.port(), "--frames", "47"}), 4 * kPatience);
  EXPECT_EQ(done.status, (ExitStatus{0, 0}));
  EXPECT_THAT(done.output, HasSubstr("\nHealth check — TSL-R-GONE  fw 1.4\nFrames analyzed: 47\n"));
}

TEST(HealthOfGlove, interrupt_without_a_glove_leaves_no_frames) {
  const TempDirectory directory;
  Process tool(health({"--port", directory.file("nothing")}));
  // Long before the first stale frame, which comes after two seconds.
  ASSERT_TRUE(tool.wait_for_output("Collecting 500 frames for health analysis...\n"));
  tool.send_signal(SIGINT);
  EXPECT_EQ(tool.wait(), (ExitStatus{1, 0}));
  EXPECT_EQ(tool.error(),
            "Error: no frames received from device.\n"
            "Check that the glove is powered on and the port is correct.\n");
}

}  // namespace

}  // namespace tarsil::test
