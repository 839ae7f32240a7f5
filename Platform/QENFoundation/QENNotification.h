#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "QENObject.h"

// A notification's user information: string keys to values of any copyable type.
using QENUserInfo = std::map<std::string, std::any, std::less<>>;

// What the notification centre hands to an observer. The name refers to the poster's string,
// which lives for the whole (synchronous) delivery; copy it to keep it longer.
struct QENNotification {
  std::string_view name;
  std::shared_ptr<QENObject> object;
  QENUserInfo userInfo;
};

using QENNotificationHandler = std::function<void(const QENNotification&)>;
