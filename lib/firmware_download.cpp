#include "firmware_download.h"

#include <curl/curl.h>

#include <cstdlib>
#include <memory>
#include <mutex>

#include <fmt/core.h>

#include "millisecond_setting.h"

namespace {

long timeoutMs() { return millisecondSetting(std::getenv(kFirmwareTimeoutVariable), kFirmwareDownloadTimeoutMs); }

struct Transfer {
    std::vector<uint8_t> body;
    bool tooLarge = false;
    std::function<bool()> const* keepGoing = nullptr;
    bool cancelled = false;
};

size_t takeBody(char* data, size_t size, size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    size_t const length = size * count;
    if (transfer.body.size() + length > kMaxFirmwareDownloadSize) {
        transfer.tooLarge = true;
        return 0;  // ends the transfer with a write error
    }
    transfer.body.insert(transfer.body.end(), data, data + length);
    return length;
}

int askToGoOn(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(user);
    if (*transfer.keepGoing && !(*transfer.keepGoing)()) transfer.cancelled = true;
    return transfer.cancelled ? 1 : 0;
}

FirmwareDownload failed(std::string text) { return {FirmwareDownloadStatus::Failed, {}, std::move(text)}; }

}  // namespace

FirmwareDownload downloadFirmware(std::string const& url, std::function<bool()> const& keepGoing) {
    static std::once_flag initialised;
    std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> const curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) return failed("Cannot download " + url + ": the HTTP client could not be set up");

    Transfer transfer;
    transfer.keepGoing = &keepGoing;
    CURL* const c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 0L);
    // Proxies from the environment would carry the request elsewhere.
    curl_easy_setopt(c, CURLOPT_PROXY, "");
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, timeoutMs());
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(c, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(c, CURLOPT_XFERINFOFUNCTION, askToGoOn);
    curl_easy_setopt(c, CURLOPT_XFERINFODATA, &transfer);
    char message[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, message);

    CURLcode const result = curl_easy_perform(c);
    if (transfer.cancelled) return {FirmwareDownloadStatus::Cancelled, {}, {}};
    if (transfer.tooLarge)
        return failed(
            fmt::format("Cannot download {}: the file is larger than {} bytes", url, kMaxFirmwareDownloadSize));
    if (result != CURLE_OK)
        return failed(fmt::format("Cannot download {}: {}", url, *message ? message : curl_easy_strerror(result)));
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    if (status == 404) return {FirmwareDownloadStatus::NotFound, {}, {}};
    if (status != 200) return failed(fmt::format("Cannot download {}: the server answered HTTP {}", url, status));
    // A body cut short without a length to tell is caught by the image's own
    // length field; with a length, curl fails the transfer itself.
    return {FirmwareDownloadStatus::Downloaded, std::move(transfer.body), {}};
}
