package com.qen.performancelogger;

/**
 * What an Android app's process lifecycle observer calls, turned into the library's application
 * events, which metrics observing them record as annotations. Named after the observer's
 * callbacks: call onStart from {@code onStart}, and so on.
 */
public final class AppLifecycleBridge {
  private static final int DID_ENTER_BACKGROUND = 0;
  private static final int WILL_RESIGN_ACTIVE = 1;
  private static final int WILL_ENTER_FOREGROUND = 2;
  private static final int DID_BECOME_ACTIVE = 3;

  public void onStart() {
    post(WILL_ENTER_FOREGROUND, "onStart");
  }

  public void onResume() {
    post(DID_BECOME_ACTIVE, "onResume");
  }

  public void onPause() {
    post(WILL_RESIGN_ACTIVE, "onPause");
  }

  public void onStop() {
    post(DID_ENTER_BACKGROUND, "onStop");
  }

  private static void post(int event, String callback) {
    QENPerformanceLoggerException.check(Native.postApplicationEvent(event), callback);
  }
}
