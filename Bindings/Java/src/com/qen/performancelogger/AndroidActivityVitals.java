package com.qen.performancelogger;

import android.app.Activity;
import android.app.Application;
import android.os.Bundle;
import android.os.Handler;
import android.view.Window;
import java.util.IdentityHashMap;
import java.util.Map;

/**
 * The vitals an app's activities give, once registered with {@code
 * application.registerActivityLifecycleCallbacks(vitals)} in {@code Application.onCreate}: the
 * frames of each activity in the foreground go to {@link Frames}; each activity the app measures
 * (its {@link ScreenMetrics} says with which metric) gets its time to initial and full display
 * ({@link ScreenDisplay}), full when the activity calls {@link #reportFullyDrawn}; and the first
 * activity's creation goes into the start's facts ({@link #appStart}).
 */
public final class AndroidActivityVitals implements Application.ActivityLifecycleCallbacks {
  /** The metric measuring an activity's screen, already started; null for one not measured. */
  public interface ScreenMetrics {
    Metric screenMetric(Activity activity);
  }

  private final ScreenMetrics screens;
  private final Handler frameHandler;
  private final AndroidFrameMetricsListener frames = new AndroidFrameMetricsListener();
  // Guarded by this: the displays of the activities alive, by activity.
  private final Map<Object, ScreenDisplay> displays = new IdentityHashMap<>();
  private double firstScreenTime = Double.NaN;
  private boolean firstScreenRestored;

  /**
   * Frames are heard of on {@code frameHandler}, a background thread's, never the main thread's;
   * null leaves the frames to the app (it reports them to {@link Frames} itself).
   */
  public AndroidActivityVitals(ScreenMetrics screens, Handler frameHandler) {
    this.screens = java.util.Objects.requireNonNull(screens, "screens");
    this.frameHandler = frameHandler;
  }

  /**
   * The start's facts as far as the activities know them (the first screen's time, whether it was
   * restored from saved state), over the process's start, which the app reads ({@code
   * Process.getStartUptimeMillis() / 1000.0}).
   */
  public synchronized AppStart appStart(double processStartTime) {
    AppStart start = new AppStart();
    start.processStartTime = processStartTime;
    start.firstScreenTime = firstScreenTime;
    start.restoredFromSavedState = firstScreenRestored;
    return start;
  }

  /** The activity shows everything it is to show (where it calls its own reportFullyDrawn). */
  public void reportFullyDrawn(Activity activity) {
    screenFullyDrawn(activity);
  }

  @Override
  public void onActivityCreated(Activity activity, Bundle savedState) {
    screenCreated(activity, screens.screenMetric(activity), Metric.now(), savedState != null);
  }

  @Override
  public void onActivityResumed(Activity activity) {
    Window window = activity.getWindow();
    if (window != null && frameHandler != null) {
      window.addOnFrameMetricsAvailableListener(frames, frameHandler);
    }
  }

  @Override
  public void onActivityPaused(Activity activity) {
    Window window = activity.getWindow();
    if (window != null && frameHandler != null) {
      window.removeOnFrameMetricsAvailableListener(frames);
    }
  }

  @Override
  public void onActivityDestroyed(Activity activity) {
    screenGone(activity);
  }

  @Override
  public void onActivityStarted(Activity activity) {}

  @Override
  public void onActivityStopped(Activity activity) {}

  @Override
  public void onActivitySaveInstanceState(Activity activity, Bundle outState) {}

  // What the callbacks do, with the activity as a key: the JVM tests call these.

  synchronized void screenCreated(Object activity, Metric screen, double time, boolean restored) {
    if (Double.isNaN(firstScreenTime)) {
      firstScreenTime = time;
      firstScreenRestored = restored;
    }
    if (screen != null) {
      displays.put(activity, new ScreenDisplay(screen, time, 30));
    }
  }

  synchronized void screenFullyDrawn(Object activity) {
    ScreenDisplay display = displays.get(activity);
    if (display != null) {
      display.reportFullyDrawn();
    }
  }

  synchronized void screenGone(Object activity) {
    ScreenDisplay display = displays.remove(activity);
    if (display != null) {
      display.close();
    }
  }
}
