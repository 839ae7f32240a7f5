#include "Annotation+QENAdditions.h"

#include <string>

#include "QENNumericConversion.h"

namespace QENThrift {

const std::shared_ptr<const Endpoint>& AnnotationQENAdditions::sharedHost() {
  static const auto* const host = new std::shared_ptr<const Endpoint>(
      std::make_shared<const Endpoint>(0, 0, "ios", std::nullopt));
  return *host;
}

std::shared_ptr<const Annotation> AnnotationQENAdditions::annotationWithName(std::string_view name,
                                                                             double time) {
  return std::make_shared<const Annotation>(QENMicrosecondsSince1970FromMonotonicTime(time),
                                            std::string(name), sharedHost());
}

}  // namespace QENThrift
