#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Endpoint.h"

namespace QENThrift {

// A timestamped event of a span: the Zipkin model's Annotation. The timestamp is in
// microseconds since the Unix epoch; the host is optional (null when absent).
class Annotation {
 public:
  Annotation() = default;
  // initWithTimestamp:value:host:
  Annotation(std::int64_t timestamp, std::string value, std::shared_ptr<const Endpoint> host)
      : timestamp_(timestamp), value_(std::move(value)), host_(std::move(host)) {}

  std::int64_t timestamp() const noexcept { return timestamp_; }
  void setTimestamp(std::int64_t timestamp) noexcept { timestamp_ = timestamp; }
  const std::string& value() const noexcept { return value_; }
  void setValue(std::string value) { value_ = std::move(value); }
  const std::shared_ptr<const Endpoint>& host() const noexcept { return host_; }
  void setHost(std::shared_ptr<const Endpoint> host) { host_ = std::move(host); }

 private:
  std::int64_t timestamp_ = 0;
  std::string value_;
  std::shared_ptr<const Endpoint> host_;
};

}  // namespace QENThrift
