#pragma once

// The common base of objects that travel as the object of a notification, so that an observer
// can ask what it received with dynamic_pointer_cast instead of trusting a type-erased pointer.
class QENObject {
 public:
  QENObject() = default;
  QENObject(const QENObject&) = default;
  QENObject& operator=(const QENObject&) = default;
  virtual ~QENObject() = default;
};
