#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "QENFoundation/QENMonotonicTime.h"

// The construction paths of a metric class, as static factories that return the class itself.
//
// QENPerformanceMetric inherits them for itself; a subclass inherits them for the subclass and
// brings them into its scope with `using`, so that every path yields the subclass and runs its
// own constructor (its initialiser):
//
//   class QENParentPerformanceMetric : public QENPerformanceMetric,
//                                      public
//                                      QENPerformanceMetricFactories<QENParentPerformanceMetric> {
//    public:
//     using QENPerformanceMetricFactories<QENParentPerformanceMetric>::initWithName;
//     using QENPerformanceMetricFactories<QENParentPerformanceMetric>::initLeafMetricWithName;
//     QENParentPerformanceMetric(ConstructionKey key, std::string name, double uploadFraction,
//                                bool shouldObserveMetricWillStart, bool
//                                shouldPostMetricWillStart);
//   };
//
// The metric is owned by a shared_ptr before it registers for will-start notifications, so a
// notification can never reach a half-built metric. Construction never returns null.
//
// initWithName is one name for several initialisers, told apart by the types of what follows the
// name. Read a call by them:
//
//   initWithName(name)                                 upload fraction 1.0
//   initWithName(name, 0.5)                            upload fraction
//   initWithName(name, 0.5, true)                      upload fraction, will-start flags
//   initWithName(name, 0.5, true, false)               upload fraction, observe, post
//   initWithName(name, 12.0, 12.5)                     START and STOP TIME, already measured
//   initWithName(name, std::int64_t{t}, std::int64_t{s}) trace id and span id
//   initWithName(name, std::int64_t{s})                span id
//
// so initWithName("x", 0.5, 1.0) is a metric that ran from 0.5 s to 1.0 s, not one sampled at
// 0.5. Calls that integer conversions would otherwise send to one of these by chance (a plain int
// for a fraction, a time, an id or a flag) do not compile: write 1.0, std::int64_t{...} or true.
template <class Metric>
class QENPerformanceMetricFactories {
 public:
  // The full initialiser: the will-start flags set separately.
  static std::shared_ptr<Metric> initWithName(std::string name, double uploadFraction,
                                              bool shouldObserveMetricWillStart,
                                              bool shouldPostMetricWillStart) {
    return Metric::template makeMetric<Metric>(
        std::move(name), uploadFraction, shouldObserveMetricWillStart, shouldPostMetricWillStart);
  }

  // `dynamicallyManageMetricHierarchy` sets both will-start flags.
  static std::shared_ptr<Metric> initWithName(std::string name, double uploadFraction,
                                              bool dynamicallyManageMetricHierarchy) {
    return initWithName(std::move(name), uploadFraction, dynamicallyManageMetricHierarchy,
                        dynamicallyManageMetricHierarchy);
  }

  static std::shared_ptr<Metric> initWithName(std::string name, double uploadFraction) {
    return initWithName(std::move(name), uploadFraction, true);
  }

  static std::shared_ptr<Metric> initWithName(std::string name) {
    return initWithName(std::move(name), 1.0, true);
  }

  // A leaf neither posts nor observes will-start notifications.
  static std::shared_ptr<Metric> initLeafMetricWithName(std::string name) {
    return initWithName(std::move(name), 1.0, false);
  }

  // Already measured: the times are stored as given, without checks, callbacks or notification.
  static std::shared_ptr<Metric> initWithName(std::string name, double startTime, double stopTime) {
    auto metric = initWithName(std::move(name), 1.0);
    metric->setStartTime(startTime);
    metric->setStopTime(stopTime);
    return metric;
  }

  static std::shared_ptr<Metric> initLeafMetricWithName(std::string name, double startTime,
                                                        double stopTime) {
    auto metric = initLeafMetricWithName(std::move(name));
    metric->setStartTime(startTime);
    metric->setStopTime(stopTime);
    return metric;
  }

  // With the given ids in place of random ones.
  static std::shared_ptr<Metric> initWithName(std::string name, std::int64_t traceId,
                                              std::int64_t spanId) {
    return Metric::template makeMetricWithIdentifiers<Metric>(std::move(name), traceId, spanId);
  }

  static std::shared_ptr<Metric> initWithName(std::string name, std::int64_t spanId) {
    return Metric::template makeMetricWithIdentifiers<Metric>(std::move(name), std::nullopt,
                                                              spanId);
  }

  static std::shared_ptr<Metric> initWithName(std::string name, int) = delete;
  static std::shared_ptr<Metric> initWithName(std::string name, double, int) = delete;
  static std::shared_ptr<Metric> initWithName(std::string name, int, int) = delete;
  static std::shared_ptr<Metric> initWithName(std::string name, int, double) = delete;

  // A metric without a name (what a measured task given none makes), told apart from one named "".
  static std::shared_ptr<Metric> initWithName(std::nullopt_t, double uploadFraction,
                                              bool dynamicallyManageMetricHierarchy) {
    return Metric::template makeMetric<Metric>(std::optional<std::string>(), uploadFraction,
                                               dynamicallyManageMetricHierarchy,
                                               dynamicallyManageMetricHierarchy);
  }

  // A finished leaf metric that measured `work`, run here and now.
  static std::shared_ptr<Metric> createWithName(std::string name,
                                                const std::function<void()>& work) {
    auto metric = initLeafMetricWithName(std::move(name));
    metric->startMetricWithTime(QENMonotonicTimeGetCurrent());
    if (work) {
      work();
    }
    metric->stopMetricWithTime(QENMonotonicTimeGetCurrent());
    return metric;
  }

  // A leaf metric with the given times, stored unchecked.
  static std::shared_ptr<Metric> createWithName(std::string name, double startTime,
                                                double stopTime) {
    return initLeafMetricWithName(std::move(name), startTime, stopTime);
  }
};
