package com.qen.performancelogger;

import android.os.Build;
import android.view.FrameMetrics;
import android.view.Window;
import java.util.logging.Level;
import java.util.logging.Logger;

/**
 * Reports every frame a window draws to {@link Frames}. Added to a window on a background handler
 * ({@code window.addOnFrameMetricsAvailableListener(listener, handler)}), as {@link
 * AndroidActivityVitals} does for each activity in the foreground. Never throws into the handler's
 * thread: a frame the library refuses is logged and left out.
 */
public final class AndroidFrameMetricsListener implements Window.OnFrameMetricsAvailableListener {
  private static final Logger LOG = Logger.getLogger(AndroidFrameMetricsListener.class.getName());
  // FrameMetrics.INTENDED_VSYNC_TIMESTAMP, from API 26: earlier, the frame's start is read back
  // from the time it is heard of.
  private static final int INTENDED_VSYNC_TIMESTAMP = 10;

  @Override
  public void onFrameMetricsAvailable(Window window, FrameMetrics metrics, int dropCount) {
    long totalNanos = metrics.getMetric(FrameMetrics.TOTAL_DURATION);
    long startNanos = Build.VERSION.SDK_INT >= 26 ? metrics.getMetric(INTENDED_VSYNC_TIMESTAMP)
                                                  : System.nanoTime() - totalNanos;
    report(startNanos, totalNanos, window.getWindowManager().getDefaultDisplay().getRefreshRate());
  }

  static void report(long startNanos, long totalNanos, float refreshRate) {
    try {
      Frames.reportFrameMetrics(startNanos, totalNanos, refreshRate);
    } catch (RuntimeException refused) {
      LOG.log(Level.FINE, "QENPerformanceLogger: a frame was left out", refused);
    }
  }
}
