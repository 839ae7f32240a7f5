#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

class QENPerformanceMetric;
struct QENNotification;

// The metrics that annotate the application's lifecycle. The process registers with the
// notification centre once, for all of them, and fans each lifecycle notification out to the
// metrics listed at that moment: making a metric observe costs a list entry, not four
// registrations. Metrics are held weakly; one whose destruction has begun is never called, and
// its destructor takes its entries out.
class QENAppLifecycleObservers {
 public:
  static QENAppLifecycleObservers& shared();

  // Lists the metric once more (twice listed, it is told twice).
  void add(const std::shared_ptr<QENPerformanceMetric>& metric);
  // Takes every entry of the metric out.
  void remove(const QENPerformanceMetric* metric);
  // How many entries are listed.
  std::size_t count() const;

 private:
  struct Entry {
    const QENPerformanceMetric* address;
    std::weak_ptr<QENPerformanceMetric> metric;
  };
  using Handler = void (QENPerformanceMetric::*)(const QENNotification&);

  QENAppLifecycleObservers();
  void fanOut(Handler handler, const QENNotification& notification) const;

  mutable std::mutex mutex_;
  std::list<Entry> entries_;  // in the order they were listed
  // Where each metric's entries are, so that taking them out never walks the list.
  std::unordered_multimap<const QENPerformanceMetric*, std::list<Entry>::iterator>
      positionsByMetric_;
};
