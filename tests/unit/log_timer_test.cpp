// log_timer_test.cpp - log formatting and transport, the level filter, the
// stage timer hooks and the version strings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "runtime/log.h"
#include "runtime/timer.h"
#include "runtime/version.h"
#include "support/log_capture.h"
#include "support/yuv_image.h"

namespace {

// Arguments are formatted once (a '%' inside one stays), priority and
// stream reach the sink, and overlong messages are cut, not overflowed.
TEST(Log, MessagesArriveFormattedAndCut) {
  KqLogCapture log;
  kqLog(stderr, 6, "Orvane", "cannot set thread name to '%s'", "abc");
  kqLog(stdout, 4, "Orvane", "%s", "100% sure");
  kqLog(stderr, 6, "Orvane", "%s", std::string(10000, 'x').c_str());
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].message, "cannot set thread name to 'abc'");
  EXPECT_EQ(lines[1].message, "100% sure");
  EXPECT_EQ(lines[1].priority, 4);
  EXPECT_EQ(lines[1].stream, stdout);
  EXPECT_EQ(lines[2].message.size(), 4095u);
}

// What the default writer puts into a scratch file at a level.
std::string writtenAtLevel(KQLogLevel level) {
  const KQLogLevel saved = kqLogLevel();
  kqLogSetLevel(level);
  std::FILE* f = std::tmpfile();
  if (f == nullptr) return "no tmpfile";
  kqLog(f, KQ_LOG_ERROR, "Orvane", "mmap(%u) failed", 5u);
  kqLog(f, KQ_LOG_INFO, "Orvane", "hello");
  kqLogSetLevel(saved);
  std::rewind(f);
  char buffer[256] = {0};
  const size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
  std::fclose(f);
  return std::string(buffer, n);
}

TEST(Log, DefaultWriterKeepsLinesUpToTheLevel) {
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_INFO), "E/Orvane: mmap(5) failed\nI/Orvane: hello\n");
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_ERROR), "E/Orvane: mmap(5) failed\n");
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_OFF), "");
  KQLogLevel level = KQ_LOG_LEVEL_OFF;
  EXPECT_TRUE(kqLogLevelFromText("Info", &level));
  EXPECT_EQ(level, KQ_LOG_LEVEL_INFO);
  for (const char* text : {"", "debug", "1", "info ", "of", static_cast<const char*>(nullptr)})
    EXPECT_FALSE(kqLogLevelFromText(text, &level)) << (text ? text : "null");
  EXPECT_EQ(level, KQ_LOG_LEVEL_INFO);  // untouched by the rejected texts
}

// Timers are silent unless enabled; ids outside the table are ignored.
TEST(Timer, SilentByDefaultAndReportsStagesWhenEnabled) {
  KqLogCapture log;
  kqTimerStart(2);
  EXPECT_EQ(kqTimerStop("warpAll", 2), 0.0);
  kqTimerSetEnabled(true);
  kqTimerStart(14);
  EXPECT_GE(kqTimerStop("Chroma noise reduction", 14), 0.0);
  kqTimerStart(1000);
  EXPECT_EQ(kqTimerStop("out of range", 1000), 0.0);
  kqTimerSetEnabled(false);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].message.rfind("stage Chroma noise reduction (14): ", 0), 0u);
}

// The stage table: ids unique and within the timers' range, each nested at
// most one level below the entry before it, every id found by kqStageInfo.
TEST(Timer, StageTableIsWellFormed) {
  std::vector<int32_t> ids;
  int32_t depth = -1;
  for (size_t i = 0; i < kKqStageCount; ++i) {
    const KQStageInfo& s = kKqStages[i];
    const int32_t id = kqStageId(s.id);
    EXPECT_GE(id, 0);
    EXPECT_LT(id, 128);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), id), 0) << id;
    EXPECT_LE(s.depth, depth + 1) << id;
    EXPECT_EQ(kqStageInfo(s.id), &s);
    EXPECT_NE(std::string(s.label), "");
    EXPECT_NE(std::string(s.what), "");
    ids.push_back(id);
    depth = s.depth;
  }
  EXPECT_EQ(kKqStages[0].depth, 0);
  EXPECT_EQ(kqStageInfo(KQStage(7)), nullptr);
}

// A receiver gets every stage of a call, each when it ends, in the order a
// call runs them (a group after the stages it encloses), with the ids of the
// stage table; the log gets no stage line meanwhile.
TEST(Timer, ReceiverGetsEveryStageOfACallInOrder) {
  KqLogCapture log;
  std::vector<int32_t> stops;
  KQStageReceiver receiver = {
      [](void* user, int32_t stage, double ms) {
        EXPECT_GE(ms, 0.0);
        static_cast<std::vector<int32_t>*>(user)->push_back(stage);
      },
      &stops};
  kqTimerSetReceiver(&receiver);
  const KqYuv src = KqYuv::camera(64, 48, 2);
  KqYuv dst(128, 96, 132);
  const KQYUVMultiPlaneImage in = src.record(8), out = dst.record(8);
  KQUpScale_ScaleImage(&in, &out, 3, 4, 0.6f, 2, 0);
  kqTimerSetReceiver(nullptr);
  EXPECT_EQ(stops, (std::vector<int32_t>{0, 1, 2, 3, 92, 101, 99, 12, 91, 95, 13, 80, 81, 83, 14,
                                         4, 21, 22, 5}));
  for (int32_t id : stops) EXPECT_NE(kqStageInfo(KQStage(id)), nullptr) << id;
  for (const KqLogLine& line : log.lines()) EXPECT_NE(line.message.rfind("stage ", 0), 0u);
}

// "Name vX.Y.Z (Platform/NN-bit, date, <40 hex digits>)"
TEST(Version, StringsNamePlatformWidthAndRevision) {
  for (const char* v : {kqUpScaleVersion(), kqBaseGetVersion()}) {
    const std::string s(v);
    EXPECT_NE(s.find(sizeof(void*) == 4 ? "/32-bit, " : "/64-bit, "), std::string::npos) << s;
    ASSERT_GT(s.size(), 43u);
    EXPECT_EQ(s.back(), ')');
    EXPECT_EQ(s.substr(s.size() - 41, 40).find_first_not_of("0123456789abcdef"), std::string::npos)
        << s;
  }
  EXPECT_EQ(std::string(kqUpScaleVersion()).rfind("KQUpScale v1.3.0 (", 0), 0u);
}

}  // namespace
