#pragma once

#include <string_view>

// The application-state notifications, posted on the default notification centre. On iOS the
// host forwards UIKit's notifications of the same names; on Android it forwards its activity
// lifecycle, on a desktop its window focus. Each name holds its own name as value.
inline constexpr std::string_view UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";
inline constexpr std::string_view UIApplicationWillResignActiveNotification =
    "UIApplicationWillResignActiveNotification";
inline constexpr std::string_view UIApplicationWillEnterForegroundNotification =
    "UIApplicationWillEnterForegroundNotification";
inline constexpr std::string_view UIApplicationDidBecomeActiveNotification =
    "UIApplicationDidBecomeActiveNotification";

// How a host reports the application's state changes, synchronously on its thread.
class QENApplicationLifecycle {
 public:
  static void postDidEnterBackground();
  static void postWillResignActive();
  static void postWillEnterForeground();
  static void postDidBecomeActive();
};
