#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENNotificationCenter.h"

// Readers the tests share: what a list of spans, metrics or annotations says, in plain values.
namespace QENTest {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

// The name() of every element, in order ("" for a metric without one).
template <class List>
std::vector<std::string> namesOf(const List& list) {
  std::vector<std::string> names;
  for (const auto& element : list) {
    names.push_back(std::optional<std::string>(element->name()).value_or(std::string()));
  }
  return names;
}

// The key() of every binary annotation, in order.
template <class List>
std::vector<std::string> keysOf(const List& annotations) {
  std::vector<std::string> keys;
  for (const auto& annotation : annotations) {
    keys.push_back(annotation->key());
  }
  return keys;
}

// The first binary annotation with this key, or null.
template <class List>
Vocabulary::Pointer find(const List& annotations, std::string_view key) {
  for (const auto& annotation : annotations) {
    if (annotation && annotation->key() == key) {
      return annotation;
    }
  }
  return nullptr;
}

// A big-endian integer annotation of any width, sign-extended.
inline std::int64_t integerOf(const Vocabulary::Pointer& annotation) {
  const auto width = static_cast<int>(annotation->value()->size()) * 8;
  return Vocabulary::int64ValueFromBinaryAnnotation(annotation) >> (64 - width);
}

// The integer annotation with this key, or nothing.
template <class List>
std::optional<std::int64_t> integerFor(const List& annotations, std::string_view key) {
  const auto annotation = find(annotations, key);
  return annotation ? std::optional(integerOf(annotation)) : std::nullopt;
}

// Every binary annotation as its key and integer value.
template <class List>
std::vector<std::pair<std::string, std::int64_t>> integersOf(const List& annotations) {
  std::vector<std::pair<std::string, std::int64_t>> values;
  for (const auto& annotation : annotations) {
    values.emplace_back(annotation->key(), integerOf(annotation));
  }
  return values;
}

inline std::shared_ptr<QENThrift::Event> eventOfType(std::int32_t type) {
  auto event = std::make_shared<QENThrift::Event>();
  event->setEventType(type);
  return event;
}

// Records the integer a notification carries under a key while it lives.
class PostedIntegers {
 public:
  PostedIntegers(std::string_view name, std::string key) {
    QENNotificationCenter::defaultCenter().addObserver(
        observer_, name, nullptr, [this, key = std::move(key)](const QENNotification& posted) {
          values.push_back(std::any_cast<std::int32_t>(posted.userInfo.at(key)));
        });
  }
  ~PostedIntegers() { QENNotificationCenter::defaultCenter().removeObserver(observer_.get()); }
  PostedIntegers(const PostedIntegers&) = delete;
  PostedIntegers& operator=(const PostedIntegers&) = delete;

  std::vector<std::int32_t> values;

 private:
  std::shared_ptr<int> observer_ = std::make_shared<int>(0);
};

}  // namespace QENTest
