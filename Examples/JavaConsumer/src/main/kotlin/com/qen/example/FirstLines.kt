package com.qen.example

import com.qen.performancelogger.Format
import com.qen.performancelogger.Metric

/** A screen's render measured from Kotlin, with a request under it; prints what would leave. */
fun main() {
    val spans = Metric("home_feed_render").use { feed ->
        feed.start()
        val items = measure("feed_request", feed) { request ->
            request.addTag("screen", "home")
            listOf("first", "second")
        }
        feed.addTag("items", items.size)
        feed.stop()
        feed.export(null, "android").use { trace ->
            String(trace.encode(Format.ZIPKIN_V2_JSON, "kotlin-app"), Charsets.UTF_8)
        }
    }
    println(spans)
    JavaFirstLines.main(arrayOf())
}
