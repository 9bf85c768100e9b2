#include "firmware_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/core.h>

#include "firmware_image.h"
#include "firmware_location.h"
#include "loopback_address.h"
#include "simulated_device.h"

namespace sim {

namespace {

constexpr int kBacklog = 16;
constexpr auto kAcceptRetryPause = std::chrono::milliseconds(50);
/// A request head longer than this is not one this server answers.
constexpr size_t kMaxRequestHead = 8192;
constexpr int kSlowPieces = 50;

struct OfferName {
    FirmwareOffer offer;
    std::string_view name;
};

constexpr OfferName kOfferNames[] = {
    {FirmwareOffer::Newer, "newer"},       {FirmwareOffer::Older, "older"}, {FirmwareOffer::Equal, "equal"},
    {FirmwareOffer::Corrupted, "corrupt"}, {FirmwareOffer::Slow, "slow"},   {FirmwareOffer::Stall, "stall"},
    {FirmwareOffer::Missing, "404"},
};

int bcdToNumber(uint16_t bcd) {
    int number = 0;
    for (int shift = 12; shift >= 0; shift -= 4) number = number * 10 + std::min((bcd >> shift) & 0xF, 9);
    return number;
}

uint16_t numberToBcd(int number) {
    uint16_t bcd = 0;
    for (int shift = 0; shift < 16; shift += 4, number /= 10) bcd |= static_cast<uint16_t>((number % 10) << shift);
    return bcd;
}

std::string response(std::string_view status, size_t contentLength, std::string_view contentType) {
    return fmt::format(
        "HTTP/1.1 {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\nServer: zelmor-sim\r\n\r\n",
        status, contentType, contentLength);
}

/// The path of "GET /path HTTP/1.x" without its query, or nothing for any
/// other request line.
std::optional<std::string_view> requestedPath(std::string_view head) {
    std::string_view const line = head.substr(0, head.find("\r\n"));
    size_t const first = line.find(' ');
    size_t const second = line.rfind(' ');
    if (first == std::string_view::npos || second == first) return std::nullopt;
    if (line.substr(0, first) != "GET" || !line.substr(second + 1).starts_with("HTTP/1.")) return std::nullopt;
    std::string_view const target = line.substr(first + 1, second - first - 1);
    return target.substr(0, target.find('?'));
}

}  // namespace

std::optional<FirmwareOffer> parseFirmwareOffer(std::string_view text) {
    for (OfferName const& o : kOfferNames)
        if (o.name == text) return o.offer;
    return std::nullopt;
}

char const* firmwareOfferName(FirmwareOffer offer) {
    for (OfferName const& o : kOfferNames)
        if (o.offer == offer) return o.name.data();
    return "";
}

uint16_t offeredFirmwareVersion(FirmwareOffer offer, uint16_t current) {
    int const number = bcdToNumber(current);
    if (offer == FirmwareOffer::Equal) return current;
    if (offer == FirmwareOffer::Older) return numberToBcd(std::max(number - 1, 0));
    return numberToBcd(std::min(number + 1, 9999));
}

std::vector<uint8_t> offeredFirmwareImage(FirmwareOffer offer, uint8_t hardwareRevision, uint16_t current) {
    uint16_t const version = offeredFirmwareVersion(offer, current);
    std::vector<uint8_t> payload(FirmwareServer::kOfferedPayloadSize);
    // Bytes that differ from model to model and version to version, so that a
    // mix-up of two files shows.
    uint32_t state = 0x9E3779B9u ^ (uint32_t{hardwareRevision} << 16) ^ version;
    for (uint8_t& byte : payload) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(state >> 24);
    }
    std::vector<uint8_t> image = buildFirmwareImage(hardwareRevision, version, 0x0000, payload);
    if (offer == FirmwareOffer::Corrupted) image.back() ^= 0x5A;
    return image;
}

FirmwareServer::FirmwareServer(std::string address, uint16_t port, FirmwareOffer offer)
    : address_(std::move(address)), port_(port), offer_(offer) {}

FirmwareServer::~FirmwareServer() { stop(); }

void FirmwareServer::addDevice(SimulatedDevice& device) { devices_.push_back(&device); }

bool FirmwareServer::start() {
    if (acceptThread_.joinable()) return true;
    std::optional<uint32_t> const address = parseLoopbackAddress(address_);
    if (!address) {
        fail(fmt::format("Cannot serve firmware on {}: not a numeric loopback address (127.0.0.0/8)", address_));
        return false;
    }
    std::string error;
    uint16_t bound = 0;
    int const fd = listenOn({*address, port_}, kBacklog, bound, error);
    if (fd < 0) {
        fail(fmt::format("Cannot serve firmware on {}: {}", endpointText({*address, port_}), error));
        return false;
    }
    listener_ = fd;
    {
        std::lock_guard lock(mutex_);
        boundPort_ = bound;
        stopping_ = false;
    }
    acceptThread_ = std::thread([this] { acceptLoop(); });
    return true;
}

void FirmwareServer::stop() {
    std::vector<std::unique_ptr<Connection>> connections;
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        boundPort_ = 0;
        // Wakes every thread blocked in a read or a send; each descriptor is
        // closed only after its thread is joined.
        for (auto const& connection : connections_) ::shutdown(connection->socket, SHUT_RDWR);
    }
    wake_.notify_all();
    if (listener_ >= 0) ::shutdown(listener_, SHUT_RDWR);
    if (acceptThread_.joinable()) acceptThread_.join();
    if (listener_ >= 0) ::close(listener_);
    listener_ = -1;
    {
        std::lock_guard lock(mutex_);
        connections.swap(connections_);
    }
    for (auto const& connection : connections) {
        ::shutdown(connection->socket, SHUT_RDWR);
        connection->thread.join();
        ::close(connection->socket);
    }
}

std::string FirmwareServer::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

uint16_t FirmwareServer::port() const {
    std::lock_guard lock(mutex_);
    return boundPort_;
}

void FirmwareServer::fail(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
}

void FirmwareServer::acceptLoop() {
    for (;;) {
        int const fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            {
                std::lock_guard lock(mutex_);
                if (stopping_) return;
            }
            if (errno != EINTR && errno != ECONNABORTED) std::this_thread::sleep_for(kAcceptRetryPause);
            continue;
        }
        std::lock_guard lock(mutex_);
        if (stopping_) {
            ::close(fd);
            return;
        }
        // Threads that have answered are done but for their return: joined here.
        auto const finished = std::partition(connections_.begin(), connections_.end(),
                                             [](auto const& connection) { return !connection->done; });
        for (auto it = finished; it != connections_.end(); ++it) {
            (*it)->thread.join();
            ::close((*it)->socket);
        }
        connections_.erase(finished, connections_.end());
        auto connection = std::make_unique<Connection>();
        connection->socket = fd;
        Connection* const c = connection.get();
        connection->thread = std::thread([this, c] { serve(*c); });
        connections_.push_back(std::move(connection));
    }
}

void FirmwareServer::serve(Connection& connection) {
    int const fd = connection.socket;
    std::string head;
    char buffer[1024];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < kMaxRequestHead) {
        ssize_t const got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        head.append(buffer, static_cast<size_t>(got));
    }
    std::optional<std::string_view> const path =
        head.find("\r\n\r\n") == std::string::npos ? std::nullopt : requestedPath(head);
    std::optional<std::vector<uint8_t>> const file = path ? fileAt(*path) : std::nullopt;
    if (!path) {
        std::string const text = "Only GET is served here.\n";
        std::string const reply = response("400 Bad Request", text.size(), "text/plain") + text;
        sendAll(fd, reinterpret_cast<uint8_t const*>(reply.data()), reply.size());
    } else if (!file) {
        std::string const text = "No such firmware file.\n";
        std::string const reply = response("404 Not Found", text.size(), "text/plain") + text;
        sendAll(fd, reinterpret_cast<uint8_t const*>(reply.data()), reply.size());
    } else {
        std::string const headers = response("200 OK", file->size(), "application/octet-stream");
        uint8_t const* body = file->data();
        bool sent = sendAll(fd, reinterpret_cast<uint8_t const*>(headers.data()), headers.size());
        if (sent && offer_ == FirmwareOffer::Slow) {
            size_t const piece = (file->size() + kSlowPieces - 1) / kSlowPieces;
            for (size_t at = 0; sent && at < file->size(); at += piece)
                sent = pause(kSlowBodyDuration / kSlowPieces) &&
                       sendAll(fd, body + at, std::min(piece, file->size() - at));
        } else if (sent && offer_ == FirmwareOffer::Stall) {
            if (sendAll(fd, body, file->size() / 2)) waitForClientOrStop(fd);
        } else if (sent) {
            sendAll(fd, body, file->size());
        }
    }
    // The client reads up to the close; it is not cut off by a reset while
    // bytes are still on their way.
    ::shutdown(fd, SHUT_WR);
    std::lock_guard lock(mutex_);
    connection.done = true;
}

std::optional<std::vector<uint8_t>> FirmwareServer::fileAt(std::string_view path) const {
    if (offer_ == FirmwareOffer::Missing) return std::nullopt;
    for (SimulatedDevice* device : devices_) {
        DeviceSnapshot const s = device->snapshot();
        std::string const devicePath = firmwareFilePath(s.hardwareRevision, s.firmwareVersion);
        if (!devicePath.empty() && devicePath == path)
            return offeredFirmwareImage(offer_, s.hardwareRevision, s.firmwareVersion);
    }
    return std::nullopt;
}

bool FirmwareServer::sendAll(int socket, uint8_t const* data, size_t length) {
    while (length > 0) {
        ssize_t const sent = ::send(socket, data, length, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        data += sent;
        length -= static_cast<size_t>(sent);
    }
    return true;
}

bool FirmwareServer::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(mutex_);
    return !wake_.wait_for(lock, duration, [this] { return stopping_; });
}

void FirmwareServer::waitForClientOrStop(int socket) {
    // Whatever the client sends is thrown away; its close, or stop() shutting
    // the socket down, ends the read.
    char buffer[256];
    for (;;) {
        ssize_t const got = ::recv(socket, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return;
    }
}

}  // namespace sim
