package com.qen.example;

import com.qen.performancelogger.Metric;
import com.qen.performancelogger.Trace;

/** The same from Java: a metric released by try-with-resources. */
public final class JavaFirstLines {
  private JavaFirstLines() {}

  public static void main(String[] arguments) {
    try (Metric launch = new Metric("launch")) {
      launch.start();
      launch.stop();
      try (Trace trace = launch.export(null, "android")) {
        System.out.println("launch: " + trace.spanCount() + " span");
      }
    }
  }
}
