// The Java binding's native half: com.qen.performancelogger.Native's methods, registered in
// JNI_OnLoad (the library's only exported symbol), each a thin call of the C interface. Every
// method returns the C status; the Java side turns a failure into an exception, so no native code
// here throws or leaves a Java exception pending.
#include <jni.h>

#include <cstdint>
#include <string>
#include <vector>

#include "QENPerformanceLoggerC.h"

namespace {

JavaVM* javaVM = nullptr;
jclass nativeClass = nullptr;       // global reference
jmethodID runCompletion = nullptr;  // static void runCompletion(Object, boolean)
// static long postThroughTransport(Object, byte[], Object[])
jmethodID postThroughTransport = nullptr;
jmethodID filterTag = nullptr;  // static String filterTag(Object, String, String)

// A Java string as UTF-8; a lone surrogate becomes U+FFFD, as ill-formed UTF-8 does in the C
// interface. Absent for null. A short string (a metric's name, a tag's key) is copied into the
// stack: the JVM keeps most strings in one byte a character, and lending them as UTF-16
// (GetStringCritical) would allocate a copy on its side anyway.
struct Text {
  static constexpr jsize kOnStack = 128;

  Text(JNIEnv* env, jstring string) : present(string != nullptr) {
    if (!present) {
      return;
    }
    const jsize length = env->GetStringLength(string);
    if (length <= kOnStack) {
      jchar units[kOnStack];
      env->GetStringRegion(string, 0, length, units);
      convert(units, length);
      return;
    }
    const jchar* units = env->GetStringCritical(string, nullptr);
    if (units == nullptr) {  // out of memory: the call is refused as for a missing string
      env->ExceptionClear();
      present = false;
      return;
    }
    convert(units, length);
    env->ReleaseStringCritical(string, units);
  }
  const char* data() const { return present ? text.data() : nullptr; }
  std::size_t size() const { return text.size(); }

  bool present;
  std::string text;

 private:
  void convert(const jchar* units, jsize length) {
    text.reserve(static_cast<std::size_t>(length));
    for (jsize index = 0; index < length; ++index) {
      char32_t point = units[index];
      const bool high = point >= 0xD800 && point <= 0xDBFF;
      if (high && index + 1 < length && units[index + 1] >= 0xDC00 && units[index + 1] <= 0xDFFF) {
        point = 0x10000 + ((point - 0xD800) << 10) + (units[++index] - 0xDC00);
      } else if (point >= 0xD800 && point <= 0xDFFF) {
        point = 0xFFFD;
      }
      append(point);
    }
  }

  void append(char32_t point) {
    if (point < 0x80) {
      text += static_cast<char>(point);
      return;
    }
    constexpr unsigned kLeadBits[] = {0, 0xC0, 0xE0, 0xF0};  // by the count of bytes that follow
    const int trailing = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    text += static_cast<char>(kLeadBits[trailing] | (point >> (6 * trailing)));
    for (int shift = 6 * (trailing - 1); shift >= 0; shift -= 6) {
      text += static_cast<char>(0x80 | ((point >> shift) & 0x3F));
    }
  }
};

void setLong(JNIEnv* env, jlongArray out, std::int64_t value) {
  const jlong element = static_cast<jlong>(value);
  env->SetLongArrayRegion(out, 0, 1, &element);
}

QENCMetric metric(jlong id) {
  return QENCMetric{static_cast<std::uint64_t>(id)};
}

QENCTrace trace(jlong id) {
  return QENCTrace{static_cast<std::uint64_t>(id)};
}

QENCSpool spool(jlong id) {
  return QENCSpool{static_cast<std::uint64_t>(id)};
}

QENCReporter reporter(jlong id) {
  return QENCReporter{static_cast<std::uint64_t>(id)};
}

// Detaches a thread the binding attached, when the thread ends.
struct AttachedThread {
  ~AttachedThread() {
    if (attached) {
      javaVM->DetachCurrentThread();
    }
  }
  bool attached = false;
};

JNIEnv* attachedEnv() {
  thread_local AttachedThread thread;
  JNIEnv* env = nullptr;
  if (javaVM->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) == JNI_OK) {
    return env;
  }
  JavaVMAttachArgs arguments{JNI_VERSION_1_6, const_cast<char*>("QENPerformanceLogger"), nullptr};
  if (javaVM->AttachCurrentThreadAsDaemon(reinterpret_cast<void**>(&env), &arguments) != JNI_OK) {
    return nullptr;
  }
  thread.attached = true;
  return env;
}

// Runs on a library thread (or the calling one, for a finished metric). The Java side catches
// what the callback throws; anything that still escapes is cleared here, never left pending.
void completeInJava(void* userData, bool valid) {
  auto callback = static_cast<jobject>(userData);
  JNIEnv* env = attachedEnv();
  if (env == nullptr) {
    return;  // the JVM is going away: the callback cannot run
  }
  env->CallStaticVoidMethod(nativeClass, runCompletion, callback, static_cast<jboolean>(valid));
  if (env->ExceptionCheck()) {
    env->ExceptionDescribe();
    env->ExceptionClear();
  }
}

// Once the completion ran, or its metric went without finishing.
void releaseInJava(void* userData) {
  if (JNIEnv* env = attachedEnv()) {
    env->DeleteGlobalRef(static_cast<jobject>(userData));
  }
}

// A reporter's post through the app's Java transport, on the transport's library thread. The
// Java side answers the outcome in the low byte and the Retry-After seconds above it (-1: none);
// it catches what the transport throws, and anything that still escapes is cleared here.
QENCPostOutcome postThroughJava(void* transport, const std::uint8_t* body, std::size_t bodyLength,
                                const QENCHeader* headers, std::size_t headerCount,
                                std::int64_t* retryAfterSeconds) {
  JNIEnv* env = attachedEnv();
  if (env == nullptr) {
    return QENCPostRetry;  // the JVM is going away: the batch waits, or goes at shutdown
  }
  jbyteArray bytes = env->NewByteArray(static_cast<jsize>(bodyLength));
  jclass stringClass = env->FindClass("java/lang/String");
  jobjectArray pairs =
      bytes == nullptr || stringClass == nullptr
          ? nullptr
          : env->NewObjectArray(static_cast<jsize>(headerCount * 2), stringClass, nullptr);
  jlong answer = -1;  // no outcome: the batch counts as lost to host code
  if (pairs != nullptr) {
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(bodyLength),
                            reinterpret_cast<const jbyte*>(body));
    for (std::size_t index = 0; index < headerCount; ++index) {
      const QENCHeader& header = headers[index];
      for (const auto& [offset, text] :
           {std::pair{0, std::string(header.name, header.nameLength)},
            std::pair{1, std::string(header.value, header.valueLength)}}) {
        jstring element = env->NewStringUTF(text.c_str());
        env->SetObjectArrayElement(pairs, static_cast<jsize>(index * 2 + offset), element);
        env->DeleteLocalRef(element);
      }
    }
    answer = env->CallStaticLongMethod(nativeClass, postThroughTransport,
                                       static_cast<jobject>(transport), bytes, pairs);
  }
  if (env->ExceptionCheck()) {
    env->ExceptionDescribe();
    env->ExceptionClear();
    answer = -1;
  }
  for (jobject local : {static_cast<jobject>(bytes), static_cast<jobject>(pairs),
                        static_cast<jobject>(stringClass)}) {
    env->DeleteLocalRef(local);
  }
  *retryAfterSeconds = answer < 0 ? -1 : (answer >> 8) - 1;
  return answer < 0 ? static_cast<QENCPostOutcome>(-1)
                    : static_cast<QENCPostOutcome>(answer & 0xFF);
}

void releaseJavaReference(void* reference) {
  if (JNIEnv* env = attachedEnv()) {
    env->DeleteGlobalRef(static_cast<jobject>(reference));
  }
}

// The app's Java tag filter, on the thread that encodes: null drops the tag, another string
// replaces its value. The Java side catches what the filter throws (the tag then stays).
bool filterTagInJava(void* filter, const char* key, std::size_t keyLength, QENCTagValue* value) {
  JNIEnv* env = attachedEnv();
  if (env == nullptr) {
    return true;
  }
  const char* text = nullptr;
  std::size_t length = 0;
  QENCTagValueRead(value, &text, &length);
  jstring keyString = env->NewStringUTF(std::string(key, keyLength).c_str());
  jstring valueString = env->NewStringUTF(std::string(text, length).c_str());
  auto kept = static_cast<jstring>(env->CallStaticObjectMethod(
      nativeClass, filterTag, static_cast<jobject>(filter), keyString, valueString));
  if (env->ExceptionCheck()) {
    env->ExceptionClear();
  }
  if (kept != nullptr && !env->IsSameObject(kept, valueString)) {
    const Text replaced(env, kept);
    QENCTagValueReplace(value, replaced.data(), replaced.size());
  }
  for (jobject local : {static_cast<jobject>(keyString), static_cast<jobject>(valueString),
                        static_cast<jobject>(kept)}) {
    env->DeleteLocalRef(local);
  }
  return kept != nullptr;
}

// MARK: - Metrics

// A new metric's handle; on failure, the status in the high half over a zero low half, which no
// handle has. It spares each metric made an array for its handle.
jlong handleOrStatus(QENCStatus status, QENCMetric made) {
  return static_cast<jlong>(status == QENCStatusOK ? made.id
                                                   : static_cast<std::uint64_t>(status) << 32);
}

jlong metricCreate(JNIEnv* env, jclass, jstring name, jdouble fraction) {
  const Text text(env, name);
  QENCMetric made{};
  return handleOrStatus(QENCMetricCreate(text.data(), text.size(), fraction, &made), made);
}

jlong metricCreateLeaf(JNIEnv* env, jclass, jstring name) {
  const Text text(env, name);
  QENCMetric made{};
  return handleOrStatus(QENCMetricCreateLeaf(text.data(), text.size(), &made), made);
}

jint metricRelease(JNIEnv*, jclass, jlong id) {
  return QENCMetricRelease(metric(id));
}

jlong metricHandleCount(JNIEnv*, jclass) {
  return static_cast<jlong>(QENCMetricHandleCount());
}

jint metricStart(JNIEnv*, jclass, jobject, jlong id) {
  return QENCMetricStart(metric(id));
}

jint metricStartWithTime(JNIEnv*, jclass, jobject, jlong id, jdouble time) {
  return QENCMetricStartWithTime(metric(id), time);
}

jint metricStop(JNIEnv*, jclass, jobject, jlong id) {
  return QENCMetricStop(metric(id));
}

jint metricStopWithTime(JNIEnv*, jclass, jobject, jlong id, jdouble time) {
  return QENCMetricStopWithTime(metric(id), time);
}

jint metricInvalidate(JNIEnv*, jclass, jobject, jlong id, jlong reason) {
  return QENCMetricInvalidate(metric(id), reason);
}

jint metricInvalidateWithTime(JNIEnv*, jclass, jobject, jlong id, jlong reason, jdouble time) {
  return QENCMetricInvalidateWithTime(metric(id), reason, time);
}

jint metricAddChild(JNIEnv*, jclass, jobject, jlong parent, jobject, jlong child) {
  return QENCMetricAddChild(metric(parent), metric(child));
}

jint metricAddAnnotation(JNIEnv* env, jclass, jobject, jlong id, jstring name, jdouble time) {
  const Text text(env, name);
  return QENCMetricAddAnnotation(metric(id), text.data(), text.size(), time);
}

jint metricAddAnnotationNow(JNIEnv* env, jclass, jobject, jlong id, jstring name) {
  const Text text(env, name);
  return QENCMetricAddAnnotation(metric(id), text.data(), text.size(), QENCMonotonicTimeNow());
}

jint metricAddStringTag(JNIEnv* env, jclass, jobject, jlong id, jstring key, jstring value) {
  const Text keyText(env, key);
  const Text valueText(env, value);
  return QENCMetricAddStringTag(metric(id), keyText.data(), keyText.size(), valueText.data(),
                                valueText.size());
}

jint metricAddBoolTag(JNIEnv* env, jclass, jobject, jlong id, jstring key, jboolean value) {
  const Text keyText(env, key);
  return QENCMetricAddBoolTag(metric(id), keyText.data(), keyText.size(), value == JNI_TRUE);
}

jint metricAddInt16Tag(JNIEnv* env, jclass, jobject, jlong id, jstring key, jshort value) {
  const Text keyText(env, key);
  return QENCMetricAddInt16Tag(metric(id), keyText.data(), keyText.size(), value);
}

jint metricAddInt32Tag(JNIEnv* env, jclass, jobject, jlong id, jstring key, jint value) {
  const Text keyText(env, key);
  return QENCMetricAddInt32Tag(metric(id), keyText.data(), keyText.size(), value);
}

jint metricAddInt64Tag(JNIEnv* env, jclass, jobject, jlong id, jstring key, jlong value) {
  const Text keyText(env, key);
  return QENCMetricAddInt64Tag(metric(id), keyText.data(), keyText.size(), value);
}

jint metricAddCompletion(JNIEnv* env, jclass, jobject, jlong id, jobject callback) {
  jobject held = env->NewGlobalRef(callback);
  const QENCStatus status =
      QENCMetricAddCompletion(metric(id), completeInJava, releaseInJava, held);
  if (status != QENCStatusOK) {
    env->DeleteGlobalRef(held);
  }
  return status;
}

jint metricShouldUpload(JNIEnv* env, jclass, jobject, jlong id, jbooleanArray out) {
  bool shouldUpload = false;
  const QENCStatus status = QENCMetricShouldUpload(metric(id), &shouldUpload);
  if (status == QENCStatusOK) {
    const jboolean element = shouldUpload ? JNI_TRUE : JNI_FALSE;
    env->SetBooleanArrayRegion(out, 0, 1, &element);
  }
  return status;
}

jint metricIdentifiers(JNIEnv* env, jclass, jobject, jlong id, jlongArray out) {
  std::int64_t identifiers[2] = {0, 0};
  const QENCStatus status = QENCMetricIdentifiers(metric(id), &identifiers[0], &identifiers[1]);
  if (status == QENCStatusOK) {
    const jlong elements[2] = {identifiers[0], identifiers[1]};
    env->SetLongArrayRegion(out, 0, 2, elements);
  }
  return status;
}

void collectHeader(void* userData, const char* name, std::size_t nameLength, const char* value,
                   std::size_t valueLength) {
  auto* headers = static_cast<std::vector<std::string>*>(userData);
  headers->emplace_back(name, nameLength);
  headers->emplace_back(value, valueLength);
}

// Names and values, alternately, as a String[] in out[0]; header names and values are ASCII.
jint storeHeaders(JNIEnv* env, const std::vector<std::string>& headers, jobjectArray out) {
  jclass stringClass = env->FindClass("java/lang/String");
  jobjectArray pairs =
      env->NewObjectArray(static_cast<jsize>(headers.size()), stringClass, nullptr);
  if (pairs == nullptr) {
    env->ExceptionClear();
    return QENCStatusFailed;
  }
  for (std::size_t index = 0; index < headers.size(); ++index) {
    jstring text = env->NewStringUTF(headers[index].c_str());
    env->SetObjectArrayElement(pairs, static_cast<jsize>(index), text);
    env->DeleteLocalRef(text);
  }
  env->SetObjectArrayElement(out, 0, pairs);
  return QENCStatusOK;
}

// Each element a byte[] of UTF-8.
jint setPropagationHosts(JNIEnv* env, jclass, jobjectArray hosts) {
  const jsize count = hosts == nullptr ? 0 : env->GetArrayLength(hosts);
  std::vector<Text> texts;
  for (jsize index = 0; index < count; ++index) {
    auto element = static_cast<jstring>(env->GetObjectArrayElement(hosts, index));
    texts.emplace_back(env, element);
    env->DeleteLocalRef(element);
  }
  std::vector<const char*> data;
  std::vector<std::size_t> lengths;
  for (const Text& text : texts) {
    data.push_back(text.data());
    lengths.push_back(text.size());
  }
  return QENCSetPropagationHosts(data.data(), lengths.data(), data.size());
}

jint metricPropagationHeaders(JNIEnv* env, jclass, jobject, jlong id, jstring url,
                              jobjectArray out) {
  const Text urlText(env, url);
  std::vector<std::string> headers;
  const QENCStatus status = QENCMetricPropagationHeaders(metric(id), urlText.data(), urlText.size(),
                                                         collectHeader, &headers);
  return status != QENCStatusOK ? status : storeHeaders(env, headers, out);
}

// The drawn span id (0: none, the host is not listed) goes to out[0]; the headers, as for
// metricPropagationHeaders, to pairs[0].
jint propagationHeadersForRequest(JNIEnv* env, jclass, jobject, jlong parent, jstring url,
                                  jlongArray out, jobjectArray pairsOut) {
  const Text urlText(env, url);
  std::vector<std::string> headers;
  std::int64_t spanId = 0;
  const QENCStatus status = QENCPropagationHeadersForRequest(
      metric(parent), urlText.data(), urlText.size(), &spanId, collectHeader, &headers);
  if (status != QENCStatusOK) {
    return status;
  }
  setLong(env, out, spanId);
  return storeHeaders(env, headers, pairsOut);
}

// Timing: the eleven phase times (NaN for absent) then status, header bytes, body bytes and 1 for
// a reused connection.
jint endpointMetricCreate(JNIEnv* env, jclass, jstring url, jstring method, jdoubleArray times,
                          jlongArray counts, jlong requestSpanId, jlongArray out) {
  const Text urlText(env, url);
  const Text methodText(env, method);
  double phase[11];
  std::int64_t values[4];
  env->GetDoubleArrayRegion(times, 0, 11, phase);
  env->GetLongArrayRegion(counts, 0, 4, reinterpret_cast<jlong*>(values));
  if (env->ExceptionCheck()) {
    env->ExceptionClear();
    return QENCStatusInvalidArgument;
  }
  const QENCRequestTiming timing{phase[0],  phase[1],  phase[2],  phase[3],  phase[4],
                                 phase[5],  phase[6],  phase[7],  phase[8],  phase[9],
                                 phase[10], values[0], values[1], values[2], values[3] != 0};
  QENCMetric made{};
  const QENCStatus status =
      QENCEndpointMetricCreate(urlText.data(), urlText.size(), methodText.data(), methodText.size(),
                               &timing, requestSpanId, &made);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(made.id));
  }
  return status;
}

jint postApplicationEvent(JNIEnv*, jclass, jint event) {
  return QENCPostApplicationEvent(static_cast<QENCApplicationEvent>(event));
}

jint reportFrame(JNIEnv*, jclass, jdouble startTime, jdouble duration, jdouble expectedInterval) {
  return QENCReportFrame(startTime, duration, expectedInterval);
}

jint setSlowFrameTolerance(JNIEnv*, jclass, jdouble seconds) {
  return QENCSetSlowFrameTolerance(seconds);
}

jint screenDisplayCreate(JNIEnv* env, jclass, jobject, jlong screen, jdouble creationTime,
                         jdouble fullDisplayTimeout, jlongArray out) {
  QENCScreenDisplay made{};
  const QENCStatus status =
      QENCScreenDisplayCreate(metric(screen), creationTime, fullDisplayTimeout, &made);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(made.id));
  }
  return status;
}

jint screenDisplayReportFullyDrawn(JNIEnv*, jclass, jobject, jlong id, jdouble time) {
  return QENCScreenDisplayReportFullyDrawn(QENCScreenDisplay{static_cast<std::uint64_t>(id)}, time);
}

jint screenDisplayRelease(JNIEnv*, jclass, jlong id) {
  return QENCScreenDisplayRelease(QENCScreenDisplay{static_cast<std::uint64_t>(id)});
}

jint hangMonitorStart(JNIEnv*, jclass, jdouble thresholdSeconds) {
  return QENCHangMonitorStart(thresholdSeconds, nullptr, nullptr, nullptr);
}

jint hangMonitorKeepOngoingHangs(JNIEnv* env, jclass, jobject, jlong spoolId, jint format,
                                 jstring service, jstring platform) {
  const Text serviceText(env, service);
  const Text platformText(env, platform);
  return QENCHangMonitorKeepOngoingHangs(spool(spoolId), static_cast<QENCFormat>(format),
                                         serviceText.data(), serviceText.size(),
                                         platformText.data(), platformText.size());
}

jint heartbeat(JNIEnv*, jclass) {
  return QENCHeartbeat();
}

jint hangMonitorStop(JNIEnv*, jclass) {
  return QENCHangMonitorStop();
}

jint metricTagAppStart(JNIEnv* env, jclass, jobject, jlong id, jdouble processStartTime,
                       jdouble firstScreenTime, jint flags, jintArray out) {
  QENCAppStartType type = QENCAppStartNone;
  const QENCStatus status = QENCMetricTagAppStart(metric(id), processStartTime, firstScreenTime,
                                                  static_cast<std::uint32_t>(flags), &type);
  if (status == QENCStatusOK) {
    const jint value = type;
    env->SetIntArrayRegion(out, 0, 1, &value);
  }
  return status;
}

jint metricObserveApplicationEvents(JNIEnv*, jclass, jobject, jlong id) {
  return QENCMetricObserveApplicationEvents(metric(id));
}

// MARK: - Export

jint traceCreate(JNIEnv* env, jclass, jobject, jlong id, jstring userId, jstring platform,
                 jlongArray out) {
  const Text user(env, userId);
  const Text platformText(env, platform);
  QENCTrace made{};
  const QENCStatus status = QENCTraceCreate(metric(id), user.data(), user.size(),
                                            platformText.data(), platformText.size(), &made);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(made.id));
  }
  return status;
}

jint traceRelease(JNIEnv*, jclass, jlong id) {
  return QENCTraceRelease(trace(id));
}

jint traceSpanCount(JNIEnv* env, jclass, jobject, jlong id, jlongArray out) {
  std::size_t count = 0;
  const QENCStatus status = QENCTraceSpanCount(trace(id), &count);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(count));
  }
  return status;
}

jint traceEncode(JNIEnv* env, jclass, jobject, jlong id, jint format, jstring service,
                 jobjectArray out) {
  const Text serviceText(env, service);
  QENCBuffer encoded{nullptr, 0};
  const QENCStatus status = QENCTraceEncode(trace(id), static_cast<QENCFormat>(format),
                                            serviceText.data(), serviceText.size(), &encoded);
  if (status != QENCStatusOK) {
    return status;
  }
  jbyteArray bytes = env->NewByteArray(static_cast<jsize>(encoded.length));
  if (bytes == nullptr) {
    env->ExceptionClear();
    QENCBufferRelease(&encoded);
    return QENCStatusFailed;
  }
  env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(encoded.length),
                          reinterpret_cast<const jbyte*>(encoded.data));
  QENCBufferRelease(&encoded);
  env->SetObjectArrayElement(out, 0, bytes);
  return status;
}

// MARK: - Delivery

jint spoolCreate(JNIEnv* env, jclass, jstring path, jlong maximumBytes, jint maximumAgeSeconds,
                 jlongArray out) {
  if (maximumBytes < 0 || maximumAgeSeconds < 0) {  // not a bound past 2^63: a mistake
    return QENCStatusInvalidArgument;
  }
  const Text pathText(env, path);
  QENCSpool made{};
  const QENCStatus status =
      QENCSpoolCreate(pathText.data(), pathText.size(), static_cast<std::uint64_t>(maximumBytes),
                      static_cast<std::uint32_t>(maximumAgeSeconds), &made);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(made.id));
  }
  return status;
}

jint spoolRelease(JNIEnv*, jclass, jlong id) {
  return QENCSpoolRelease(spool(id));
}

// The strings of a Java array, each read once.
std::vector<Text> textsOf(JNIEnv* env, jobjectArray array) {
  std::vector<Text> texts;
  const jsize count = array != nullptr ? env->GetArrayLength(array) : 0;
  for (jsize index = 0; index < count; ++index) {
    auto element = static_cast<jstring>(env->GetObjectArrayElement(array, index));
    texts.emplace_back(env, element);
    env->DeleteLocalRef(element);
  }
  return texts;
}

// Applies to `options` what Java set: headers and kept query keys as strings, limits as pairs of
// a QENCReporterLimit and its value; the first refusal ends it.
QENCStatus applyOptions(JNIEnv* env, QENCReporterOptions options, jint format, jstring service,
                        jboolean gzip, jobjectArray headerTexts, jlong spoolId, jlongArray limits,
                        jobjectArray keptQueryKeys, jint consent, jdouble minimumBatteryLevel,
                        jboolean pausesOnMeteredNetwork, jobject tagFilter, jobject transport) {
  const Text serviceText(env, service);
  QENCStatus status =
      QENCReporterOptionsSetFormat(options, static_cast<QENCFormat>(format), gzip == JNI_TRUE);
  const auto keep = [&](QENCStatus next) { status = status == QENCStatusOK ? next : status; };
  keep(QENCReporterOptionsSetService(options, serviceText.data(), serviceText.size()));
  const std::vector<Text> headers = textsOf(env, headerTexts);
  for (std::size_t index = 0; index + 1 < headers.size(); index += 2) {
    keep(QENCReporterOptionsAddHeader(options, headers[index].data(), headers[index].size(),
                                      headers[index + 1].data(), headers[index + 1].size()));
  }
  for (const Text& key : textsOf(env, keptQueryKeys)) {
    keep(QENCReporterOptionsAddKeptQueryKey(options, key.data(), key.size()));
  }
  const jsize limitCount = limits != nullptr ? env->GetArrayLength(limits) : 0;
  std::vector<jlong> pairs(static_cast<std::size_t>(limitCount));
  if (limitCount > 0) {
    env->GetLongArrayRegion(limits, 0, limitCount, pairs.data());
  }
  for (std::size_t index = 0; index + 1 < pairs.size(); index += 2) {
    keep(pairs[index + 1] < 0
             ? QENCStatusInvalidArgument
             : QENCReporterOptionsSetLimit(options, static_cast<QENCReporterLimit>(pairs[index]),
                                           static_cast<std::uint64_t>(pairs[index + 1])));
  }
  keep(QENCReporterOptionsSetConsent(options, static_cast<QENCConsent>(consent)));
  keep(QENCReporterOptionsSetDeviceThresholds(options, minimumBatteryLevel,
                                              pausesOnMeteredNetwork == JNI_TRUE));
  if (spoolId != 0) {
    keep(QENCReporterOptionsSetSpool(options, spool(spoolId)));
  }
  if (tagFilter != nullptr && status == QENCStatusOK) {
    jobject held = env->NewGlobalRef(tagFilter);
    status = QENCReporterOptionsSetTagFilter(options, filterTagInJava, releaseJavaReference, held);
    if (status != QENCStatusOK) {
      env->DeleteGlobalRef(held);
    }
  }
  if (transport != nullptr && status == QENCStatusOK) {
    jobject held = env->NewGlobalRef(transport);
    status = QENCReporterOptionsSetTransport(options, postThroughJava, releaseJavaReference, held);
    if (status != QENCStatusOK) {
      env->DeleteGlobalRef(held);
    }
  }
  return status;
}

jint reporterCreate(JNIEnv* env, jclass, jstring url, jint format, jstring service, jboolean gzip,
                    jobjectArray headerTexts, jobject, jlong spoolId, jlongArray limits,
                    jobjectArray keptQueryKeys, jint consent, jdouble minimumBatteryLevel,
                    jboolean pausesOnMeteredNetwork, jobject tagFilter, jobject transport,
                    jlongArray out) {
  const Text urlText(env, url);
  QENCReporterOptions options{};
  QENCStatus status = QENCReporterOptionsCreate(urlText.data(), urlText.size(), &options);
  if (status != QENCStatusOK) {
    return status;
  }
  status =
      applyOptions(env, options, format, service, gzip, headerTexts, spoolId, limits, keptQueryKeys,
                   consent, minimumBatteryLevel, pausesOnMeteredNetwork, tagFilter, transport);
  QENCReporter made{};
  if (status == QENCStatusOK) {
    status = QENCReporterCreate(options, &made);
  }
  QENCReporterOptionsRelease(options);
  if (status == QENCStatusOK) {
    setLong(env, out, static_cast<std::int64_t>(made.id));
  }
  return status;
}

jint reporterRelease(JNIEnv*, jclass, jlong id) {
  return QENCReporterRelease(reporter(id));
}

jint reporterReport(JNIEnv*, jclass, jobject, jlong id, jobject, jlong traceId) {
  return QENCReporterReport(reporter(id), trace(traceId));
}

jint reporterShutdown(JNIEnv* env, jclass, jobject, jlong id, jint limitMilliseconds,
                      jbooleanArray out) {
  bool delivered = false;
  const QENCStatus status =
      QENCReporterShutdown(reporter(id), static_cast<std::uint32_t>(limitMilliseconds), &delivered);
  if (status == QENCStatusOK) {
    const jboolean element = delivered ? JNI_TRUE : JNI_FALSE;
    env->SetBooleanArrayRegion(out, 0, 1, &element);
  }
  return status;
}

jint reporterSetConsent(JNIEnv*, jclass, jobject, jlong id, jint consent) {
  return QENCReporterSetConsent(reporter(id), static_cast<QENCConsent>(consent));
}

jint reporterSetDeviceConditions(JNIEnv*, jclass, jobject, jlong id, jboolean online,
                                 jboolean metered, jboolean powerSave, jdouble batteryLevel,
                                 jboolean charging) {
  const QENCDeviceConditions conditions{online == JNI_TRUE, metered == JNI_TRUE,
                                        powerSave == JNI_TRUE, batteryLevel, charging == JNI_TRUE};
  return QENCReporterSetDeviceConditions(reporter(id), &conditions);
}

jint reporterCounters(JNIEnv* env, jclass, jobject, jlong id, jlongArray out) {
  QENCReporterCounters counters{};
  const QENCStatus status = QENCReporterGetCounters(reporter(id), &counters);
  if (status == QENCStatusOK) {
    const jlong elements[4] = {
        static_cast<jlong>(counters.accepted), static_cast<jlong>(counters.persisted),
        static_cast<jlong>(counters.delivered), static_cast<jlong>(counters.dropped)};
    env->SetLongArrayRegion(out, 0, 4, elements);
  }
  return status;
}

jdouble monotonicNow(JNIEnv*, jclass) {
  return QENCMonotonicTimeNow();
}

#define QENJ_METHOD(name, signature)                                                      \
  JNINativeMethod {                                                                       \
    const_cast<char*>(#name), const_cast<char*>(signature), reinterpret_cast<void*>(name) \
  }

const JNINativeMethod kMethods[] = {
    QENJ_METHOD(metricCreate, "(Ljava/lang/String;D)J"),
    QENJ_METHOD(metricCreateLeaf, "(Ljava/lang/String;)J"),
    QENJ_METHOD(metricRelease, "(J)I"),
    QENJ_METHOD(metricHandleCount, "()J"),
    QENJ_METHOD(metricStart, "(Ljava/lang/Object;J)I"),
    QENJ_METHOD(metricStartWithTime, "(Ljava/lang/Object;JD)I"),
    QENJ_METHOD(metricStop, "(Ljava/lang/Object;J)I"),
    QENJ_METHOD(metricStopWithTime, "(Ljava/lang/Object;JD)I"),
    QENJ_METHOD(metricInvalidate, "(Ljava/lang/Object;JJ)I"),
    QENJ_METHOD(metricInvalidateWithTime, "(Ljava/lang/Object;JJD)I"),
    QENJ_METHOD(metricAddChild, "(Ljava/lang/Object;JLjava/lang/Object;J)I"),
    QENJ_METHOD(metricAddAnnotation, "(Ljava/lang/Object;JLjava/lang/String;D)I"),
    QENJ_METHOD(metricAddAnnotationNow, "(Ljava/lang/Object;JLjava/lang/String;)I"),
    QENJ_METHOD(metricAddStringTag, "(Ljava/lang/Object;JLjava/lang/String;Ljava/lang/String;)I"),
    QENJ_METHOD(metricAddBoolTag, "(Ljava/lang/Object;JLjava/lang/String;Z)I"),
    QENJ_METHOD(metricAddInt16Tag, "(Ljava/lang/Object;JLjava/lang/String;S)I"),
    QENJ_METHOD(metricAddInt32Tag, "(Ljava/lang/Object;JLjava/lang/String;I)I"),
    QENJ_METHOD(metricAddInt64Tag, "(Ljava/lang/Object;JLjava/lang/String;J)I"),
    QENJ_METHOD(metricAddCompletion, "(Ljava/lang/Object;JLjava/lang/Object;)I"),
    QENJ_METHOD(metricShouldUpload, "(Ljava/lang/Object;J[Z)I"),
    QENJ_METHOD(metricIdentifiers, "(Ljava/lang/Object;J[J)I"),
    QENJ_METHOD(setPropagationHosts, "([Ljava/lang/Object;)I"),
    QENJ_METHOD(metricPropagationHeaders,
                "(Ljava/lang/Object;JLjava/lang/String;[Ljava/lang/Object;)I"),
    QENJ_METHOD(propagationHeadersForRequest,
                "(Ljava/lang/Object;JLjava/lang/String;[J[Ljava/lang/Object;)I"),
    QENJ_METHOD(endpointMetricCreate, "(Ljava/lang/String;Ljava/lang/String;[D[JJ[J)I"),
    QENJ_METHOD(postApplicationEvent, "(I)I"),
    QENJ_METHOD(reportFrame, "(DDD)I"),
    QENJ_METHOD(setSlowFrameTolerance, "(D)I"),
    QENJ_METHOD(screenDisplayCreate, "(Ljava/lang/Object;JDD[J)I"),
    QENJ_METHOD(screenDisplayReportFullyDrawn, "(Ljava/lang/Object;JD)I"),
    QENJ_METHOD(screenDisplayRelease, "(J)I"),
    QENJ_METHOD(hangMonitorStart, "(D)I"),
    QENJ_METHOD(hangMonitorKeepOngoingHangs,
                "(Ljava/lang/Object;JILjava/lang/String;Ljava/lang/String;)I"),
    QENJ_METHOD(heartbeat, "()I"),
    QENJ_METHOD(hangMonitorStop, "()I"),
    QENJ_METHOD(metricTagAppStart, "(Ljava/lang/Object;JDDI[I)I"),
    QENJ_METHOD(metricObserveApplicationEvents, "(Ljava/lang/Object;J)I"),
    QENJ_METHOD(traceCreate, "(Ljava/lang/Object;JLjava/lang/String;Ljava/lang/String;[J)I"),
    QENJ_METHOD(traceRelease, "(J)I"),
    QENJ_METHOD(traceSpanCount, "(Ljava/lang/Object;J[J)I"),
    QENJ_METHOD(traceEncode, "(Ljava/lang/Object;JILjava/lang/String;[Ljava/lang/Object;)I"),
    QENJ_METHOD(spoolCreate, "(Ljava/lang/String;JI[J)I"),
    QENJ_METHOD(spoolRelease, "(J)I"),
    QENJ_METHOD(reporterCreate,
                "(Ljava/lang/String;ILjava/lang/String;Z[Ljava/lang/Object;Ljava/lang/"
                "Object;J[J[Ljava/lang/Object;IDZ"
                "Ljava/lang/Object;Ljava/lang/Object;[J)I"),
    QENJ_METHOD(reporterRelease, "(J)I"),
    QENJ_METHOD(reporterReport, "(Ljava/lang/Object;JLjava/lang/Object;J)I"),
    QENJ_METHOD(reporterShutdown, "(Ljava/lang/Object;JI[Z)I"),
    QENJ_METHOD(reporterCounters, "(Ljava/lang/Object;J[J)I"),
    QENJ_METHOD(reporterSetConsent, "(Ljava/lang/Object;JI)I"),
    QENJ_METHOD(reporterSetDeviceConditions, "(Ljava/lang/Object;JZZZDZ)I"),
    QENJ_METHOD(monotonicNow, "()D"),
};

}  // namespace

extern "C" JNIEXPORT jint JNI_OnLoad(JavaVM* vm, void*) {
  javaVM = vm;
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
    return JNI_ERR;
  }
  jclass found = env->FindClass("com/qen/performancelogger/Native");
  if (found == nullptr) {
    return JNI_ERR;  // the pending NoClassDefFoundError tells the loader why
  }
  nativeClass = static_cast<jclass>(env->NewGlobalRef(found));
  runCompletion = env->GetStaticMethodID(nativeClass, "runCompletion", "(Ljava/lang/Object;Z)V");
  postThroughTransport = env->GetStaticMethodID(nativeClass, "postThroughTransport",
                                                "(Ljava/lang/Object;[B[Ljava/lang/Object;)J");
  filterTag = env->GetStaticMethodID(
      nativeClass, "filterTag",
      "(Ljava/lang/Object;Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
  if (runCompletion == nullptr || postThroughTransport == nullptr || filterTag == nullptr ||
      env->RegisterNatives(nativeClass, kMethods, sizeof kMethods / sizeof kMethods[0]) != 0) {
    return JNI_ERR;
  }
  return JNI_VERSION_1_6;
}
