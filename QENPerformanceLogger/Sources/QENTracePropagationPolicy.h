#pragma once

#include <string>
#include <string_view>
#include <vector>

// The hosts a traced request may carry trace headers to. Trace and span ids sent to a third
// party tell it which of its requests belong to one user's session, so a policy names the app's
// own hosts and sends to no other. The default policy sends to none: an app lists its first-party
// hosts once at start-up (QENTracePropagationHeaders::setPolicy).
//
// Each entry is a host suffix matched whole labels at a time and without regard to case:
// "example.com" covers "example.com" and "API.example.com", not "badexample.com". The entry "*"
// covers every host, and "*.example.com" is read as "example.com". A host written with a final dot
// ("example.com.") is the same host.
class QENTracePropagationPolicy {
 public:
  // Sends to no host.
  QENTracePropagationPolicy() = default;
  // An empty entry, or one with a character no host name has (a space, ':', '/', '@', a '*'
  // elsewhere), is reported and left out: it would match nothing or, worse, something unintended.
  // A ':' is refused because "example.com:443" would never match; so an IPv6 address is only
  // covered by "*".
  explicit QENTracePropagationPolicy(const std::vector<std::string>& hostSuffixes);

  bool allowsHost(std::string_view host) const;
  // The entries kept, lower-cased, without leading or final dots.
  const std::vector<std::string>& hostSuffixes() const noexcept { return suffixes_; }

 private:
  std::vector<std::string> suffixes_;
  bool everyHost_ = false;
};
