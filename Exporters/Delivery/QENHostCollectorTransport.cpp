#include "QENHostCollectorTransport.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "QENHostCall.h"

struct QENHostCollectorTransport::Worker {
  struct Job {
    std::string body;
    Headers headers;
  };

  explicit Worker(Post post) : post(std::move(post)) {}

  // Runs each job handed over; a job given up still runs to its end.
  void run() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return job.has_value() || stopping; });
      if (!job) {
        return;
      }
      Job running = std::move(*job);
      job.reset();
      lock.unlock();
      Outcome outcome = Outcome::kTransportFailed;
      std::optional<std::chrono::seconds> asked;
      QENCallHost("The host's collector transport",
                  [&] { outcome = post(running.body, running.headers, asked); });
      lock.lock();
      result = {outcome, asked};
      busy = false;
      changed.notify_all();
    }
  }

  const Post post;
  std::mutex mutex;
  std::condition_variable changed;
  std::optional<Job> job;
  std::optional<std::pair<Outcome, std::optional<std::chrono::seconds>>> result;
  bool busy = false;  // from a job's hand-over to its result, given up or not
  bool stopping = false;
};

QENHostCollectorTransport::QENHostCollectorTransport(Post post)
    : worker_(std::make_shared<Worker>(std::move(post))) {
  // Detached, holding the worker: a host post still under way when this transport goes ends on
  // its own, and nothing waits for it.
  std::thread([worker = worker_] { worker->run(); }).detach();
}

QENHostCollectorTransport::~QENHostCollectorTransport() {
  {
    const std::lock_guard guard(worker_->mutex);
    worker_->stopping = true;
  }
  worker_->changed.notify_all();
}

QENCollectorTransport::Outcome QENHostCollectorTransport::post(
    std::string_view body, const Headers& headers, const QENDeliveryDeadline& deadline) {
  std::unique_lock lock(worker_->mutex);
  // Waits on the deadline as it stands, read again at each wake: a shutdown brings it forward.
  const auto waitFor = [&](auto done) {
    while (!done() && !deadline.hasPassed()) {
      worker_->changed.wait_until(lock, deadline.time());
    }
    return done();
  };
  if (!waitFor([this] { return !worker_->busy; })) {
    return Outcome::kCutOff;  // a post given up earlier still holds the host's client
  }
  worker_->job = Worker::Job{std::string(body), headers};
  worker_->result.reset();
  worker_->busy = true;
  worker_->changed.notify_all();
  if (!waitFor([this] { return worker_->result.has_value(); })) {
    return Outcome::kCutOff;
  }
  retryAfter_ = worker_->result->second;
  return worker_->result->first;
}

void QENHostCollectorTransport::wake() {
  {
    const std::lock_guard guard(worker_->mutex);
  }  // a waiting post is between checks, or asleep
  worker_->changed.notify_all();
}
