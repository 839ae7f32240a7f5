#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "QENPerformanceMetric.h"
#include "QENPerformanceMetricAppContext.h"
#include "QENSpanEncoding.h"
#include "QENSpanSpool.h"

// The binary annotation that marks a recovered span: true on every span of a snapshot.
inline constexpr std::string_view kQENRecoveredAnnotationKey = "qen.recovered";

// Keeps, in a spool, the trees of top-level metrics still running, so that a process killed in
// the middle of a cold start or a feed load leaves them behind. At each snapshot (the application
// entering the background, every `interval`, or snapshotNow) every watched tree is exported as it
// stands (QENPerformanceMetric::snapshotSpansWithAppContext: what has not finished ends at the
// snapshot time), every span is marked with the boolean binary annotation "qen.recovered" = true,
// and the result replaces the tree's previous snapshot. A tree that completes (finishes, valid or
// not) is forgotten: its snapshot is removed and the reporter sends its spans as usual. The next
// process that opens the spool sends the snapshots that are left, trees that never completed,
// before anything else.
//
// Watched metrics are held weakly: a tree the app drops without finishing keeps its last
// snapshot. Snapshots are encoded as `encoding` says (give it the reporter's: format, service,
// gzip), so that recovered spans go out as that reporter's own. `didSnapshot`, if given, hears
// after each snapshot how many trees it stored, on the thread that took it.
//
// The snapshot the background notification asks for, and those of the interval, are taken on the
// watcher's own thread: the notification's poster (the app's main thread) never waits for SQLite.
// The OS may suspend the app soon after that notification, so an app that holds a background task
// open for it ends the task in didSnapshot, which runs once the snapshot is on disk. snapshotNow
// takes one on the calling thread, for a host that would rather wait (up to the spool's busy
// timeout, when another process holds the database). A watcher being destroyed first takes the
// snapshot still asked of it.
class QENUnfinishedTraceWatcher {
 public:
  using SnapshotCallback = std::function<void(std::size_t storedTrees)>;

  QENUnfinishedTraceWatcher(std::shared_ptr<QENSpanSpool> spool, QENSpanEncoding encoding,
                            QENPerformanceMetricAppContext appContext,
                            std::chrono::milliseconds interval, SnapshotCallback didSnapshot = {});
  ~QENUnfinishedTraceWatcher();
  QENUnfinishedTraceWatcher(const QENUnfinishedTraceWatcher&) = delete;
  QENUnfinishedTraceWatcher& operator=(const QENUnfinishedTraceWatcher&) = delete;

  void watch(const std::shared_ptr<QENPerformanceMetric>& topLevel);
  void snapshotNow();

 private:
  // Shared with the notification centre's handler, which may outlive a call into the watcher.
  struct State {
    State(std::shared_ptr<QENSpanSpool> spool, QENSpanEncoding encoding,
          QENPerformanceMetricAppContext appContext, SnapshotCallback didSnapshot)
        : spool(std::move(spool)),
          encoding(std::move(encoding)),
          appContext(std::move(appContext)),
          didSnapshot(std::move(didSnapshot)) {}

    std::shared_ptr<QENSpanSpool> spool;
    QENSpanEncoding encoding;
    QENPerformanceMetricAppContext appContext;
    SnapshotCallback didSnapshot;
    std::mutex mutex;  // one snapshot at a time; guards watched
    std::vector<std::weak_ptr<QENPerformanceMetric>> watched;
    // The watcher's thread waits on these; guarded by wakeMutex.
    std::mutex wakeMutex;
    std::condition_variable wake;
    bool snapshotAsked = false;
    bool stopping = false;

    void askForSnapshot();
    void snapshot();
    std::size_t snapshotWatched();
    bool snapshotTree(const QENPerformanceMetric& topLevel, double now);
  };

  // Takes the snapshots asked for, and one every `interval` when it is positive, until stopped.
  void run(std::chrono::milliseconds interval);

  std::shared_ptr<State> state_;
  std::thread thread_;
};
