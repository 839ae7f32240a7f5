#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QENSpanReading.h"
#include "QENThrift/Span.h"
#include "QENZipkinThriftEncoder.h"

// The wire formats a collector takes from a reporter.
enum class QENSpanEncodingFormat { kZipkinV2JSON, kZipkinV1Thrift, kOTLPJSON };

// A request body ready to post, and what a collector needs to read it.
struct QENEncodedBatch {
  std::string body;
  std::string contentType;
  bool gzipped = false;
  std::uint64_t spanCount = 0;
};

// How spans go on the wire. A reporter and the unfinished-trace watcher that feeds its spool share
// one, so that recovered spans go out exactly as the reporter's own.
struct QENSpanEncoding {
  QENSpanEncodingFormat format = QENSpanEncodingFormat::kZipkinV2JSON;
  // The service the spans belong to, for every format.
  QENSpanReadingOptions reading;
  // Zipkin v1 Thrift only: as a v1 backend shows the spans right (the default: what a collector
  // is sent), or byte for byte as the library made them, saturated client-send and -receive
  // times included, which a v1 backend would read as times.
  QENZipkinThriftEncoder::Form thriftForm = QENZipkinThriftEncoder::Form::kBackendSafe;
  // Bodies are gzip-compressed (Content-Encoding: gzip), as collectors take them.
  bool gzip = true;

  using Spans = std::span<const std::shared_ptr<QENThrift::Span>>;

  // The spans in the chosen format, uncompressed.
  std::string encode(Spans spans) const;
  // "application/x-thrift" for Zipkin v1 Thrift, "application/json" for the others.
  std::string_view contentType() const;
  // A request body: encoded, gzipped if asked, with its content type and span count.
  QENEncodedBatch encodeBatch(Spans spans) const;

  // One span's bytes in the chosen format, uncompressed; framed with others by frameBatch, they
  // make the same body as encodeBatch of those spans. A reporter sizes a batch by these bytes and
  // then sends them, so each span is encoded once.
  std::string encodeSpan(const QENThrift::Span& span) const;
  QENEncodedBatch frameBatch(std::span<const std::string> encodedSpans) const;
  // The spans' bytes back from a body frameBatch made in this format (uncompressed), so that a
  // batch a collector finds too large can go in parts; nullopt for any other body.
  std::optional<std::vector<std::string>> unframeBatch(std::string_view body) const;

 private:
  QENEncodedBatch batchOf(std::string body, std::size_t spanCount) const;
};
