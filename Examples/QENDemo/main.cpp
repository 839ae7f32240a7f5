// A small measurement: a feed render with three pieces of work under it, one of which the user
// abandons. Prints the tree's debug description, what the completion callback reported, and the
// spans the tree exports.
#include <cstdio>
#include <future>

#include "QENPerformanceLoggerVersion.h"
#include "QENPerformanceMetric.h"
#include "Span+DebugDescription.h"

int main() {
  std::printf("QENPerformanceLogger %s\n\n", QENPerformanceLoggerVersionString);
  QENPerformanceMetric::setUwtMetricNames(QENPerformanceMetric::MetricNameSet{"home_feed_render"});

  auto feedRender = QENPerformanceMetric::initWithName("home_feed_render", 1.0);
  feedRender->setMetricCause(1);  // why the user waits: a user-wait span must say
  auto fetch = QENPerformanceMetric::initLeafMetricWithName("feed_fetch");
  auto decode = QENPerformanceMetric::initLeafMetricWithName("feed_decode");
  auto thumbnails = QENPerformanceMetric::initWithName("thumbnails");
  auto avatar = QENPerformanceMetric::initLeafMetricWithName("avatar_load");

  feedRender->addChildMetric(fetch);
  feedRender->addChildMetric(decode);
  feedRender->addChildMetric(thumbnails);
  thumbnails->addChildMetric(avatar);

  std::promise<bool> feedRenderCompleted;
  feedRender->addCompletionBlock([&](bool valid) { feedRenderCompleted.set_value(valid); });

  feedRender->startMetric();
  fetch->startMetric();
  fetch->stopMetric();
  decode->startMetric();
  decode->stopMetric();
  thumbnails->startMetric();
  avatar->startMetric();
  avatar->invalidateWithReason(QENPerformanceMetricStopReasonUserAbort);
  feedRender->stopMetric();  // stops the thumbnails still in flight

  const bool valid = feedRenderCompleted.get_future().get();
  std::printf("%s\n", feedRender->debugDescription().c_str());
  std::printf("completion callback: %s; should upload: %s\n", valid ? "valid" : "invalid",
              feedRender->shouldUpload() ? "yes" : "no");

  std::printf("\nspans:\n");
  const QENPerformanceMetricAppContext appContext("1234", "linux-demo");
  for (const auto& span : feedRender->spansWithAppContext(appContext)) {
    std::printf("%s\n", QENThrift::SpanDebugDescription::debugDescription(*span).c_str());
  }
  return 0;
}
