#include "QENCurlCollectorTransport.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>

#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENSpanScrubber.h"

namespace {

using std::chrono::milliseconds;

// How long a transfer waits on its sockets before it looks at the deadline again, should no
// wake-up reach it: a bound, not a poll interval (wake ends the wait at once).
constexpr milliseconds kLongestPoll{1000};

void initialiseCurlOnce() {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  (void)initialised;
}

std::size_t discardResponse(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

curl_slist* headerList(const QENCollectorTransport::Headers& headers) {
  curl_slist* list = curl_slist_append(nullptr, "Expect:");  // no 100-continue round trip
  for (const auto& [name, value] : headers) {
    list = curl_slist_append(list, (name + ": " + value).c_str());
  }
  return list;
}

// Runs `curl` on `multi` until it completes or the deadline passes; false when cut off.
bool performUntil(CURLM* multi, const QENDeliveryDeadline& deadline) {
  int running = 1;
  while (curl_multi_perform(multi, &running) == CURLM_OK && running > 0) {
    if (deadline.hasPassed()) {
      return false;
    }
    const auto untilDeadline = std::chrono::duration_cast<milliseconds>(
        deadline.time() - QENDeliveryDeadline::Clock::now());
    const auto wait = std::clamp(untilDeadline, milliseconds(0), kLongestPoll);
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(wait.count()) + 1, nullptr);
  }
  return true;
}

bool libcurlSpeaks(std::string_view scheme) {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  for (const char* const* protocol = info->protocols; *protocol != nullptr; ++protocol) {
    if (scheme == *protocol) {
      return true;
    }
  }
  return false;
}

// Why batches can never be posted to `url`; "" when they can.
std::string unusableBecause(const std::string& url) {
  CURLU* parsed = curl_url();
  const CURLUcode code = curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0);
  char* scheme = nullptr;
  curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0);  // lower-cased
  const std::string schemeText = scheme != nullptr ? scheme : "";
  curl_free(scheme);
  curl_url_cleanup(parsed);
  if (code == CURLUE_NO_HOST) {
    return "it names no host";
  }
  if (code != CURLUE_OK) {
    return std::string("libcurl cannot read it (") + curl_url_strerror(code) + ")";
  }
  if (schemeText != "http" && schemeText != "https") {
    return "a collector takes batches over http or https, not " + schemeText;
  }
  return libcurlSpeaks(schemeText) ? "" : "this libcurl was built without " + schemeText;
}

std::optional<std::string> retryAfterHeader(CURL* curl) {
  curl_header* header = nullptr;
  if (curl_easy_header(curl, "Retry-After", 0, CURLH_HEADER, -1, &header) != CURLHE_OK) {
    return std::nullopt;
  }
  return std::string(header->value);
}

CURLcode resultOf(CURLM* multi, CURL* curl) {
  CURLcode result = CURLE_FAILED_INIT;
  int remaining = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi, &remaining)) {
    if (message->msg == CURLMSG_DONE && message->easy_handle == curl) {
      result = message->data.result;
    }
  }
  return result;
}

}  // namespace

struct QENCurlCollectorTransport::Transfers {
  Transfers() : multi(curl_multi_init()) {}
  ~Transfers() { curl_multi_cleanup(multi); }
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  CURLM* const multi;
};

QENCurlCollectorTransport::QENCurlCollectorTransport(std::string collectorURL,
                                                     milliseconds requestTimeout)
    : collectorURL_(std::move(collectorURL)),
      usable_([this] {
        initialiseCurlOnce();
        const std::string why = unusableBecause(collectorURL_);
        if (!why.empty()) {
          QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
              "The collector URL \"" + QENSpanScrubber::loggableURL(collectorURL_) +
                  "\" can never be posted to: " + why + "; every batch is refused",
              true, 1, "QENSpanReporter", nullptr, __LINE__, __FILE__);
        }
        return why.empty();
      }()),
      requestTimeout_(requestTimeout) {
  transfers_ = std::make_unique<Transfers>();
}

QENCurlCollectorTransport::~QENCurlCollectorTransport() = default;

void QENCurlCollectorTransport::wake() {
  curl_multi_wakeup(transfers_->multi);
}

QENCollectorTransport::Outcome QENCurlCollectorTransport::post(
    std::string_view body, const Headers& headers, const QENDeliveryDeadline& deadline) {
  retryAfter_.reset();
  if (!usable_) {
    return Outcome::kRefused;
  }
  CURL* curl = curl_easy_init();
  if (curl == nullptr) {
    return Outcome::kRetry;
  }
  curl_slist* list = headerList(headers);
  curl_easy_setopt(curl, CURLOPT_URL, collectorURL_.c_str());
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(requestTimeout_.count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discardResponse);
  // A transfer cut off while its host name resolves leaves the resolver thread behind (it frees
  // itself when the lookup ends) instead of waiting for it: a lookup can take seconds, and
  // shutdown must return within its limit.
  curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);

  CURLM* multi = transfers_->multi;
  curl_multi_add_handle(multi, curl);
  const bool completed = performUntil(multi, deadline);
  const CURLcode result = resultOf(multi, curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  const auto retryAfter = retryAfterHeader(curl);
  retryAfter_ = retryAfter ? parseRetryAfter(*retryAfter, std::time(nullptr)) : std::nullopt;
  curl_multi_remove_handle(multi, curl);
  curl_slist_free_all(list);
  curl_easy_cleanup(curl);

  if (!completed) {
    return Outcome::kCutOff;
  }
  return outcomeOf(result == CURLE_OK, status);
}

QENCollectorTransport::Outcome QENCurlCollectorTransport::outcomeOf(bool transferred,
                                                                    long status) const {
  if (!transferred) {
    return Outcome::kRetry;  // no connection, or no whole answer
  }
  if (status >= 200 && status < 300) {
    return Outcome::kDelivered;
  }
  if (status >= 300 && status < 400) {
    QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
        "The collector at " + QENSpanScrubber::loggableURL(collectorURL_) + " answered " +
            std::to_string(status) +
            ": a collector URL that redirects is a configuration error; the batch is dropped",
        true, 1, "QENSpanReporter", nullptr, __LINE__, __FILE__);
    return Outcome::kRefused;
  }
  if (status == 429 || status == 503) {
    return Outcome::kSlowDown;
  }
  if (status == 413) {
    return Outcome::kTooLarge;
  }
  if (status == 415) {
    return Outcome::kUnsupportedEncoding;
  }
  if (status >= 400 && status < 500) {
    return Outcome::kRefused;  // the collector will not take this batch, however often it is sent
  }
  return Outcome::kRetry;  // a server error
}

std::optional<std::chrono::seconds> QENCurlCollectorTransport::parseRetryAfter(
    std::string_view value, std::time_t now) {
  if (!value.empty() && value.find_first_not_of("0123456789") == std::string_view::npos) {
    std::int64_t seconds = 0;
    const auto parsed = std::from_chars(value.data(), value.data() + value.size(), seconds);
    return parsed.ec == std::errc() ? std::optional(std::chrono::seconds(seconds))
                                    : std::optional(std::chrono::seconds::max());  // too long
  }
  const std::time_t date = curl_getdate(std::string(value).c_str(), nullptr);
  if (date == -1) {
    return std::nullopt;
  }
  return std::chrono::seconds(std::max<std::time_t>(date - now, 0));
}
