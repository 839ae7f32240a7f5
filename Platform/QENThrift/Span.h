#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Annotation.h"
#include "BinaryAnnotation.h"

namespace QENThrift {

// One timed operation of a trace: the Zipkin model's Span. Made empty and filled through the
// setters; the optional fields (parent id, timestamp, duration) carry is-set flags.
class Span {
 public:
  using AnnotationList = std::vector<std::shared_ptr<const Annotation>>;
  using BinaryAnnotationList = std::vector<std::shared_ptr<const BinaryAnnotation>>;

  std::int64_t trace_id() const noexcept { return trace_id_; }
  void setTrace_id(std::int64_t traceId) noexcept { trace_id_ = traceId; }
  std::int64_t id() const noexcept { return id_; }
  void setId(std::int64_t id) noexcept { id_ = id; }
  std::int64_t parent_id() const noexcept { return parent_id_; }
  bool parent_idIsSet() const noexcept { return parent_idIsSet_; }
  void setParent_id(std::int64_t parentId) noexcept {
    parent_id_ = parentId, parent_idIsSet_ = true;
  }
  const std::string& name() const noexcept { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  std::int64_t timestamp() const noexcept { return timestamp_; }
  bool timestampIsSet() const noexcept { return timestampIsSet_; }
  void setTimestamp(std::int64_t timestamp) noexcept {
    timestamp_ = timestamp, timestampIsSet_ = true;
  }
  std::int64_t duration() const noexcept { return duration_; }
  bool durationIsSet() const noexcept { return durationIsSet_; }
  void setDuration(std::int64_t duration) noexcept { duration_ = duration, durationIsSet_ = true; }
  const AnnotationList& annotations() const noexcept { return annotations_; }
  void setAnnotations(AnnotationList annotations) { annotations_ = std::move(annotations); }
  const BinaryAnnotationList& binary_annotations() const noexcept { return binary_annotations_; }
  void setBinary_annotations(BinaryAnnotationList binaryAnnotations) {
    binary_annotations_ = std::move(binaryAnnotations);
  }

 private:
  std::int64_t trace_id_ = 0;
  std::int64_t id_ = 0;
  std::int64_t parent_id_ = 0;
  std::int64_t timestamp_ = 0;
  std::int64_t duration_ = 0;
  bool parent_idIsSet_ = false;
  bool timestampIsSet_ = false;
  bool durationIsSet_ = false;
  std::string name_;
  AnnotationList annotations_;
  BinaryAnnotationList binary_annotations_;
};

}  // namespace QENThrift
