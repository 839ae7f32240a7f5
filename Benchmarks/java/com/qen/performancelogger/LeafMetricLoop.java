package com.qen.performancelogger;

/** The Java side of the bindings benchmark: leaf metrics made, started, stopped and closed. */
final class LeafMetricLoop {
  private LeafMetricLoop() {}

  static void run(int count) {
    for (int index = 0; index < count; ++index) {
      try (Metric metric = Metric.leaf("leaf")) {
        metric.start();
        metric.stop();
      }
    }
  }
}
