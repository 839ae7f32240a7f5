#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "QENCollectorTransport.h"

// A collector that answers each post as the test scripts it, with no socket. Each post is kept
// before it is answered, so a test that has seen the reporter stop sees every post.
class QENScriptedCollectorTransport final : public QENCollectorTransport {
 public:
  using Script = std::function<Outcome(int postIndex)>;
  struct Post {
    std::string body;
    Headers headers;
  };

  explicit QENScriptedCollectorTransport(Script script) : script_(std::move(script)) {}

  Outcome post(std::string_view body, const Headers& headers, const QENDeliveryDeadline&) override {
    int index = 0;
    {
      const std::lock_guard guard(mutex_);
      index = static_cast<int>(posts_.size());
      posts_.push_back({std::string(body), headers});
    }
    return script_(index);
  }
  void wake() override {}

  std::vector<Post> posts() const {
    const std::lock_guard guard(mutex_);
    return posts_;
  }

 private:
  const Script script_;
  mutable std::mutex mutex_;
  std::vector<Post> posts_;
};
