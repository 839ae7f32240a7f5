#pragma once

#include <memory>

// The common base of objects that travel as the object of a notification. An observer asks what
// it received with QENObjectCast, which needs no run-time type information (hosts build with
// -fno-rtti): a class that wants to be recognised declares a key and answers for it.
//
//   class Feed : public QENObject {
//    public:
//     static constexpr QENObjectClassKey kObjectClassKey{};
//     const void* objectAs(const QENObjectClassKey& key) const override {
//       return &key == &kObjectClassKey ? this : QENObject::objectAs(key);
//     }
//   };
struct QENObjectClassKey {};

class QENObject {
 public:
  QENObject() = default;
  QENObject(const QENObject&) = default;
  QENObject& operator=(const QENObject&) = default;
  virtual ~QENObject() = default;

  // This object as the class whose key is given, or null when it is not one.
  virtual const void* objectAs(const QENObjectClassKey& /*key*/) const { return nullptr; }
};

// The object as a T (a class with a kObjectClassKey), sharing its ownership; null otherwise.
template <class T>
std::shared_ptr<T> QENObjectCast(const std::shared_ptr<QENObject>& object) {
  if (object == nullptr) {
    return nullptr;
  }
  const void* found = object->objectAs(T::kObjectClassKey);
  return found == nullptr
             ? nullptr
             : std::shared_ptr<T>(object, const_cast<T*>(static_cast<const T*>(found)));
}
