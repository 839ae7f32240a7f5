package com.qen.example

import com.qen.performancelogger.Metric

/**
 * Runs [block] under a leaf metric named [name], a child of [parent]: started before the block,
 * stopped after it returns, and released however it ends (the parent keeps it in its tree).
 */
inline fun <T> measure(name: String, parent: Metric, block: (Metric) -> T): T =
    Metric.leaf(name).use { metric ->
        parent.addChild(metric)
        metric.start()
        block(metric).also { metric.stop() }
    }
