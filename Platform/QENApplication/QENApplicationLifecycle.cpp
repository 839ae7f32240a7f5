#include "QENApplicationLifecycle.h"

#include "QENFoundation/QENNotificationCenter.h"

void QENApplicationLifecycle::postDidEnterBackground() {
  QENNotificationCenter::defaultCenter().postNotificationName(
      UIApplicationDidEnterBackgroundNotification);
}

void QENApplicationLifecycle::postWillResignActive() {
  QENNotificationCenter::defaultCenter().postNotificationName(
      UIApplicationWillResignActiveNotification);
}

void QENApplicationLifecycle::postWillEnterForeground() {
  QENNotificationCenter::defaultCenter().postNotificationName(
      UIApplicationWillEnterForegroundNotification);
}

void QENApplicationLifecycle::postDidBecomeActive() {
  QENNotificationCenter::defaultCenter().postNotificationName(
      UIApplicationDidBecomeActiveNotification);
}
