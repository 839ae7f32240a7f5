package com.qen.performancelogger;

import android.os.Handler;
import android.os.Looper;

/**
 * The main thread's heartbeat for {@link Hangs}: a message on the main {@code Looper} every
 * interval. While the main thread is stuck, the message waits in its queue and no heartbeat
 * comes: that is the hang. Start it after {@link Hangs#start}, with an interval well under the
 * threshold (a quarter of it, say).
 */
public final class AndroidMainThreadHeartbeat implements Runnable {
  private final Handler mainThread = new Handler(Looper.getMainLooper());
  private final long intervalMillis;
  private volatile boolean beating;

  public AndroidMainThreadHeartbeat(long intervalMillis) {
    if (intervalMillis <= 0) {
      throw new IllegalArgumentException("intervalMillis must be above 0");
    }
    this.intervalMillis = intervalMillis;
  }

  public void start() {
    beating = true;
    mainThread.post(this);
  }

  public void stop() {
    beating = false;
    mainThread.removeCallbacks(this);
  }

  /** On the main thread: one heartbeat, and the next one posted. */
  @Override
  public void run() {
    if (beating) {
      Hangs.heartbeat();
      mainThread.postDelayed(this, intervalMillis);
    }
  }
}
