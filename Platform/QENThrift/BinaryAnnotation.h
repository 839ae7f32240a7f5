#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Endpoint.h"

namespace QENThrift {

// The Zipkin annotation types: how a binary annotation's value bytes are to be read.
enum class AnnotationType : std::int32_t {
  BOOL = 0,
  BYTES = 1,
  I16 = 2,
  I32 = 3,
  I64 = 4,
  DOUBLE = 5,
  STRING = 6,
};

// A typed key/value decoration of a span: the Zipkin model's BinaryAnnotation. The value is a
// byte buffer that may be absent; the host is optional (null when absent).
class BinaryAnnotation {
 public:
  using Bytes = std::vector<std::byte>;

  BinaryAnnotation() = default;
  // initWithKey:value:annotation_type:host:
  BinaryAnnotation(std::string key, std::optional<Bytes> value, AnnotationType annotation_type,
                   std::shared_ptr<const Endpoint> host)
      : key_(std::move(key)),
        value_(std::move(value)),
        annotation_type_(annotation_type),
        host_(std::move(host)) {}

  const std::string& key() const noexcept { return key_; }
  void setKey(std::string key) { key_ = std::move(key); }
  const std::optional<Bytes>& value() const noexcept { return value_; }
  void setValue(std::optional<Bytes> value) { value_ = std::move(value); }
  AnnotationType annotation_type() const noexcept { return annotation_type_; }
  void setAnnotation_type(AnnotationType type) noexcept { annotation_type_ = type; }
  const std::shared_ptr<const Endpoint>& host() const noexcept { return host_; }
  void setHost(std::shared_ptr<const Endpoint> host) { host_ = std::move(host); }

 private:
  std::string key_;
  std::optional<Bytes> value_;
  AnnotationType annotation_type_ = AnnotationType::BOOL;
  std::shared_ptr<const Endpoint> host_;
};

}  // namespace QENThrift
