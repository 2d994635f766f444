// log_timer_test.cpp - log formatting, priority/tag transport, the level
// filter and the stage timer hooks.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "runtime/log.h"
#include "runtime/timer.h"
#include "runtime/version.h"
#include "support/log_capture.h"

namespace {

TEST(Log, MessageArrivesFormattedWithPriorityTagAndStream) {
  KqLogCapture log;
  kqLog(stderr, 6, "Orvane", "cannot set thread name to '%s'", "abc");
  kqLog(stdout, 4, "Orvane", "%s", "100% sure");  // a '%' inside an argument
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "cannot set thread name to 'abc'");
  EXPECT_EQ(lines[0].priority, 6);
  EXPECT_EQ(lines[0].tag, "Orvane");
  EXPECT_EQ(lines[0].stream, stderr);
  EXPECT_EQ(lines[1].message, "100% sure");
  EXPECT_EQ(lines[1].priority, 4);
  EXPECT_EQ(lines[1].stream, stdout);
}

TEST(Log, OverlongMessagesAreCutNotOverflowed) {
  KqLogCapture log;
  const std::string big(10000, 'x');
  kqLog(stderr, 6, "Orvane", "%s", big.c_str());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].message.size(), 4095u);
}

// Reads back what the default writer put into a scratch file.
std::string writtenAtLevel(KQLogLevel level) {
  const KQLogLevel saved = kqLogLevel();
  kqLogSetLevel(level);
  std::FILE* f = std::tmpfile();
  if (f == nullptr) return "no tmpfile";
  kqLog(f, KQ_LOG_ERROR, "Orvane", "mmap(%u) failed (%s)", 5u, "No memory");
  kqLog(f, KQ_LOG_INFO, "Orvane", "hello");
  kqLogSetLevel(saved);
  std::rewind(f);
  char buffer[256] = {0};
  const size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
  std::fclose(f);
  return std::string(buffer, n);
}

TEST(Log, DefaultWriterKeepsLinesUpToTheLevel) {
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_INFO),
            "E/Orvane: mmap(5) failed (No memory)\nI/Orvane: hello\n");
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_ERROR), "E/Orvane: mmap(5) failed (No memory)\n");
  EXPECT_EQ(writtenAtLevel(KQ_LOG_LEVEL_OFF), "");

  KQLogLevel level = KQ_LOG_LEVEL_OFF;
  EXPECT_TRUE(kqLogLevelFromText("Info", &level));
  EXPECT_EQ(level, KQ_LOG_LEVEL_INFO);
  EXPECT_TRUE(kqLogLevelFromText("error", &level));
  EXPECT_EQ(level, KQ_LOG_LEVEL_ERROR);
  EXPECT_TRUE(kqLogLevelFromText("OFF", &level));
  EXPECT_EQ(level, KQ_LOG_LEVEL_OFF);
  for (const char* text : {"", "debug", "1", "info ", "of"})
    EXPECT_FALSE(kqLogLevelFromText(text, &level)) << text;
  EXPECT_FALSE(kqLogLevelFromText(nullptr, &level));
  EXPECT_EQ(level, KQ_LOG_LEVEL_OFF);  // untouched by the rejected texts
}

TEST(Timer, SilentByDefaultAndReportsStagesWhenEnabled) {
  KqLogCapture log;
  kqTimerSetEnabled(false);
  kqTimerStart(2);
  EXPECT_EQ(kqTimerStop("warpAll", 2), 0.0);
  EXPECT_TRUE(log.lines().empty());

  kqTimerSetEnabled(true);
  kqTimerStart(14);
  const double ms = kqTimerStop("Chroma noise reduction", 14);
  kqTimerStart(1000);  // ids outside the table are ignored, not written
  EXPECT_EQ(kqTimerStop("out of range", 1000), 0.0);
  kqTimerSetEnabled(false);
  EXPECT_GE(ms, 0.0);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].priority, 4);
  EXPECT_EQ(lines[0].message.rfind("stage Chroma noise reduction (14): ", 0), 0u)
      << lines[0].message;
}

TEST(Version, StringsNamePlatformWidthAndRevision) {
  for (const char* v : {kqUpScaleVersion(), kqBaseGetVersion()}) {
    const std::string s(v);
    const std::string bits = sizeof(void*) == 4 ? "/32-bit, " : "/64-bit, ";
    EXPECT_NE(s.find(bits), std::string::npos) << s;
    // "(Platform/NN-bit, Mmm dd yyyy hh:mm:ss, <40 hex>)"
    const size_t close = s.size() - 1;
    ASSERT_EQ(s[close], ')');
    const std::string rev = s.substr(close - 40, 40);
    EXPECT_EQ(rev.find_first_not_of("0123456789abcdef"), std::string::npos) << rev;
    EXPECT_EQ(s.substr(close - 42, 2), ", ");
  }
  EXPECT_EQ(std::string(kqUpScaleVersion()).rfind("KQUpScale v1.3.0 (", 0), 0u);
  EXPECT_EQ(std::string(kqBaseGetVersion()).rfind("KQBase v1.12.0 (", 0), 0u);
}

}  // namespace
