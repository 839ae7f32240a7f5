package com.qen.performancelogger;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * Releases the native handle of an object the app let go of without closing it. Android lacks the
 * JDK's {@code Cleaner} below API 33, so this is the same idea from API 24: a phantom
 * reference per object, enqueued once the object is unreachable, and a daemon thread of the
 * binding's that releases what the queue hands it.
 */
final class NativeReleaser {
  /** Releases one handle; its status is of no use to anyone at that point. */
  @FunctionalInterface
  interface Release {
    int release(long handle);
  }

  /** One object's handle, released once: by close, or after the object became unreachable. */
  static final class Registration extends PhantomReference<Object> {
    private final long handle;
    private final Release release;
    private final AtomicBoolean released = new AtomicBoolean();

    private Registration(Object owner, long handle, Release release) {
      super(owner, QUEUE);
      this.handle = handle;
      this.release = release;
    }

    void release() {
      if (released.compareAndSet(false, true)) {
        LIVE.remove(this);
        release.release(handle);
      }
    }
  }

  private static final ReferenceQueue<Object> QUEUE = new ReferenceQueue<>();
  // A phantom reference must itself stay reachable until it is enqueued.
  private static final Set<Registration> LIVE = ConcurrentHashMap.newKeySet();

  static {
    Thread drainer = new Thread(NativeReleaser::drain, "QENPerformanceLogger releaser");
    drainer.setDaemon(true);
    drainer.start();
  }

  private NativeReleaser() {}

  /** {@code release} must not hold {@code owner}, or the owner never becomes unreachable. */
  static Registration register(Object owner, long handle, Release release) {
    Registration registration = new Registration(owner, handle, release);
    LIVE.add(registration);
    return registration;
  }

  private static void drain() {
    while (true) {
      try {
        ((Registration) QUEUE.remove()).release();
      } catch (InterruptedException interrupted) {
        // Nobody else owns this thread: go on draining.
      }
    }
  }
}
