#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "hub_host.h"
#include "zelmor_request.h"

/// The device connection: the request engine over a real link. A LAN device is
/// reached by TCP on port 7208 with plain frames; a paired device through the
/// hub relay on port 7209, opened with a 17-byte hello and then encrypted with
/// the device's access key.
///
/// One TCP thread per link does all reading and reports the link's life: it
/// starts the engine's worker, calls the connected callback, and when the link
/// ends, stops the engine (pending requests fail) before it calls the
/// disconnect callback, exactly once per link.
class ZelmorImpl : public ZelmorRequest {
public:
    static constexpr unsigned short kDevicePort = 7208;
    static constexpr size_t kReadBufferSize = 4096;
    static constexpr int kEpollWaitMs = 50;

    explicit ZelmorImpl(std::string hubHost = hubHostSetting());
    /// Stops the link without waiting for answers.
    ~ZelmorImpl() override;

    /// Bluetooth LE links are not part of this build: there is no adapter to open.
    bool openBluetooth() override;
    /// Resolves the hub host; a name with no IPv4 address is reported at once,
    /// on this thread, as ConnectFailed.
    void connectHub(WifiAccessKey const& accessKey) override;
    /// ip in network byte order.
    void connectLan(unsigned int ip) override;
    /// Reported at once as ConnectFailed: this build has no Bluetooth LE link.
    void connectBle(unsigned long address) override;
    /// Ends a TCP link (reason ClosedLocally) and waits for its thread, at most
    /// one 50 ms wait. Never call it from the disconnect callback.
    void disconnect() override;
    /// One write of the whole frame; a short write ends the link (ClosedLocally).
    void sendData(uint8_t const* data, unsigned long length) override;
    /// No radio link, so no signal strength: always -32768.
    int16_t getRssi() override;

    /// The common starter of both TCP links: ip in network byte order, port in
    /// host order. Joins the thread of a link that ended by itself.
    void connectWifi(unsigned int ip, unsigned short port, WifiAccessKey const& accessKey);

    std::string const& hubHost() const { return hubHost_; }

private:
    void tcpThread(unsigned int ip, unsigned short port, WifiAccessKey accessKey);
    /// Steps 3 to 7 of a link on a connected socket: returns when it ends.
    void runLink(int fd, WifiAccessKey const& accessKey);
    /// Moves the reason on only if nobody has ended the link on purpose meanwhile.
    void advanceReason(DisconnectReason from, DisconnectReason to);
    /// Joins the TCP thread unless it is the calling one.
    void joinConnectionThread();

    std::string const hubHost_;
    std::mutex threadMutex_;  // guards connectionThread_ against two joiners
    std::thread connectionThread_;
    // The running TCP thread, known without the mutex so that the thread can
    // tell itself apart while another thread holds the mutex to join it.
    std::atomic<std::thread::id> connectionThreadId_{};
    std::atomic<bool> running_{false};
    std::atomic<bool> hub_{false};
    std::atomic<DisconnectReason> reason_{DisconnectReason::ConnectionLost};
    // The descriptor is closed under this mutex so that a send on the worker
    // thread never writes to a descriptor number the system has reused.
    std::mutex socketMutex_;
    int socket_ = -1;
};
