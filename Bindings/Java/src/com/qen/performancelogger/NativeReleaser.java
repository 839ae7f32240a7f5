package com.qen.performancelogger;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;

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

  /**
   * One object's handle, released once: by close, or after the object became unreachable. Until
   * then it sits in a list of the live ones, which keeps it reachable (a phantom reference must
   * be, to be enqueued): linked in place under one lock, as the JDK's Cleaner keeps its own, with
   * no allocation beyond the registration itself.
   */
  static final class Registration extends PhantomReference<Object> {
    private final long handle;
    private final Release release;
    private Registration previous;  // guarded by LIVE
    private Registration next;  // guarded by LIVE; null once released

    private Registration(Object owner, long handle, Release release) {
      super(owner, QUEUE);
      this.handle = handle;
      this.release = release;
    }

    void release() {
      synchronized (LIVE) {
        if (next == null) {
          return;
        }
        previous.next = next;
        next.previous = previous;
        next = null;
        previous = null;
      }
      release.release(handle);
    }
  }

  private static final ReferenceQueue<Object> QUEUE = new ReferenceQueue<>();
  // The head of a ring of live registrations; a registration of nothing, never released.
  private static final Registration LIVE = new Registration(null, 0, handle -> 0);

  static {
    LIVE.previous = LIVE;
    LIVE.next = LIVE;
    Thread drainer = new Thread(NativeReleaser::drain, "QENPerformanceLogger releaser");
    drainer.setDaemon(true);
    drainer.start();
  }

  private NativeReleaser() {}

  /** {@code release} must not hold {@code owner}, or the owner never becomes unreachable. */
  static Registration register(Object owner, long handle, Release release) {
    Registration registration = new Registration(owner, handle, release);
    synchronized (LIVE) {
      registration.previous = LIVE;
      registration.next = LIVE.next;
      LIVE.next.previous = registration;
      LIVE.next = registration;
    }
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
