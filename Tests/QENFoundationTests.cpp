#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "QENFoundation/QENDate.h"
#include "QENFoundation/QENJSONSerialization.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENURLLoading/QENURL.h"
#include "Support/QENRandomText.h"

namespace {

TEST(MonotonicTime, MapsToTheWallClockAndBackAsAFixedTranslation) {
  const double now = QENMonotonicTimeGetCurrent();
  const double wallClock =
      QENDate::dateWithTimeIntervalSince1970(static_cast<double>(std::time(nullptr)))
          .timeIntervalSinceReferenceDate();
  EXPECT_NEAR(QENMonotonicTimeGetAbsoluteTime(now), wallClock, 2.0);
  EXPECT_DOUBLE_EQ(
      QENMonotonicTimeGetAbsoluteTime(now + 1.5) - QENMonotonicTimeGetAbsoluteTime(now), 1.5);
  EXPECT_NEAR(QENDate::dateWithMonotonicTime(now).monotonicTime(), now, 1e-6);
  EXPECT_DOUBLE_EQ(QENDate::dateWithTimeIntervalSince1970(kCFAbsoluteTimeIntervalSince1970)
                       .timeIntervalSinceReferenceDate(),
                   0.0);
  // The coarse reading is the same clock, at most a few ticks behind.
  EXPECT_NEAR(QENMonotonicTimeGetCoarse(), now, 0.1);
  EXPECT_TRUE(QENIsValidMonotonicTime(now) && QENIsValidMonotonicTime(0.0));
  EXPECT_FALSE(QENIsValidMonotonicTime(-1.0) || QENIsValidMonotonicTime(NAN) ||
               QENIsValidMonotonicTime(INFINITY));
}

struct URLParts {
  const char* text;
  const char* host;
  const char* path;
  const char* withoutQuery;
};

// The parser only finds the parts: every text comes back as given, IPv6 hosts unexpanded.
TEST(URL, FindsThePartsOfTheTextAsGivenWithoutRewritingIt) {
  const URLParts table[] = {
      {"https://[2001:db8::1]:8080/v1/feed?fields=a,b#top", "2001:db8::1", "/v1/feed",
       "https://[2001:db8::1]:8080/v1/feed#top"},
      {"http://[::1]/", "::1", "/", "http://[::1]/"},
      {"https://user@CDN.Example.com:8443/a%2Fb/?x=1#frag?y", "CDN.Example.com", "/a%2Fb/",
       "https://user@CDN.Example.com:8443/a%2Fb/#frag?y"},
      {"http://h/p?#f", "h", "/p", "http://h/p#f"},
      {"mailto:someone@example.com", "", "someone@example.com", "mailto:someone@example.com"},
      {"//h/p/../q?x", "h", "/p/../q", "//h/p/../q"},
      {"https:///p", "", "/p", "https:///p"},
  };
  for (const URLParts& row : table) {
    const auto url = QENURL::URLWithString(row.text);
    ASSERT_NE(url, nullptr) << row.text;
    EXPECT_EQ(url->absoluteString(), row.text);
    EXPECT_EQ(url->host(), row.host) << row.text;
    EXPECT_EQ(url->relativePath(), row.path) << row.text;
    EXPECT_EQ(url->absoluteStringRemovingQuery(), row.withoutQuery) << row.text;
  }
  EXPECT_EQ(*QENURL::URLWithString("http://[::1]/"), *QENURL::URLWithString("http://[::1]/"));
  EXPECT_FALSE(*QENURL::URLWithString("http://[::1]/") ==
               *QENURL::URLWithString("http://[0:0:0:0:0:0:0:1]/"));
  EXPECT_EQ(QENURL::URLWithString("http://exa mple.com/"), nullptr);
  EXPECT_EQ(QENURL::URLWithString(""), nullptr);
}
// Random text, valid and invalid UTF-8 alike: the writer must agree with nlohmann-json on every
// document it can write and refuse the ones nlohmann cannot.
TEST(JSONSerialization, WritesWhatNlohmannWritesAndRefusesInvalidUTF8) {
  std::mt19937_64 random(20261123);
  int written = 0;
  for (int round = 0; round < 2000; ++round) {
    std::map<std::string, std::vector<std::string>> object;
    for (auto keys = random() % 3; keys > 0; --keys) {
      auto& list = object[QENTest::randomText(random, 4)];
      for (auto entries = random() % 4; entries > 0; --entries)
        list.push_back(QENTest::randomText(random, 4));
    }
    std::optional<std::string> expected;
    try {
      expected = nlohmann::json(object).dump(4);
    } catch (const nlohmann::json::exception&) {
    }
    EXPECT_EQ(QENJSONSerialization::prettyPrintedObject(object), expected);
    written += expected.has_value();
  }
  EXPECT_GT(written, 500) << "valid documents too";
}

}  // namespace
