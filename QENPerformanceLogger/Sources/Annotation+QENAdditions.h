#pragma once

#include <memory>
#include <string_view>

#include "QENThrift/Annotation.h"

namespace QENThrift {

// Timestamped annotations as the library makes them.
class AnnotationQENAdditions {
 public:
  // An annotation named `name` at monotonic time `time`: its timestamp is microseconds since
  // the Unix epoch, rounded half away from zero and saturated; its host is the one shared
  // endpoint (service "ios").
  static std::shared_ptr<const Annotation> annotationWithName(std::string_view name, double time);

  // The endpoint every annotation of the library names as its host, made once.
  static const std::shared_ptr<const Endpoint>& sharedHost();
};

}  // namespace QENThrift
