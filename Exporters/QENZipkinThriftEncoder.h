#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "QENThrift/Span.h"

// Encodes spans as Zipkin v1 expects them over HTTP (POST /api/v1/spans with
// Content-Type application/x-thrift): a Thrift binary-protocol list of Span structs, with the
// field ids and types of Zipkin's core IDL. Optional fields that are not set (parent id,
// timestamp, duration, annotation hosts, IPv6) and absent values are left out; null entries are
// skipped.
class QENZipkinThriftEncoder {
 public:
  static std::vector<std::uint8_t> encodeSpans(
      std::span<const std::shared_ptr<QENThrift::Span>> spans);
};
