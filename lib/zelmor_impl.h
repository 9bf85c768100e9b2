#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bluetooth_le.h"
#include "hub_host.h"
#include "live_data_decoder.h"
#include "zelmor_request.h"

/// The device connection: the request engine over a real link. A LAN device is
/// reached by TCP on port 7208 with plain frames; a paired device through the
/// hub relay on port 7209, opened with a 17-byte hello and then encrypted with
/// the device's access key; a Bluetooth LE model through its GATT service,
/// requests written to the command characteristic and answers taken from its
/// notifications, while the live-data characteristic pushes readings.
///
/// One thread per link does all reading and reports the link's life (the TCP
/// thread, or the GATT client's connection thread): it starts the engine's
/// worker, calls the connected callback, and when the link ends, stops the
/// engine (pending requests fail) before it calls the disconnect callback,
/// exactly once per link.
class ZelmorImpl : public ZelmorRequest {
public:
    static constexpr unsigned short kDevicePort = 7208;
    /// Large enough for a whole log block in a few reads.
    static constexpr size_t kReadBufferSize = 65536;
    static constexpr int kEpollWaitMs = 50;
    /// Asked for before discovery so that most frames fit in one write.
    static constexpr unsigned kBluetoothMtu = 247;
    /// How long a TCP connect may take before the link reports ConnectFailed,
    /// unless ZELMOR_CONNECT_TIMEOUT_MS says otherwise. The system would try
    /// for about two minutes; a device on the LAN answers within milliseconds
    /// and the hub over a slow satellite link within a second, so five seconds
    /// leave room for two lost SYNs (the system sends them again after one and
    /// after three seconds) and no more.
    static constexpr long kConnectTimeoutMs = 5000;
    static constexpr char kConnectTimeoutVariable[] = "ZELMOR_CONNECT_TIMEOUT_MS";

    /// `bluetoothHost`: the Bluetooth stack the GATT client runs on.
    explicit ZelmorImpl(std::string hubHost = hubHostSetting(), BluetoothHost& bluetoothHost = kernelBluetoothHost());
    /// Stops the link without waiting for answers.
    ~ZelmorImpl() override;

    /// Opens the default Bluetooth adapter unless it is open; true when open.
    bool openBluetooth() override;
    /// Resolves the hub host; a name with no IPv4 address is reported at once,
    /// on this thread, as ConnectFailed.
    void connectHub(WifiAccessKey const& accessKey) override;
    /// ip in network byte order.
    void connectLan(unsigned int ip) override;
    /// Connects to a Bluetooth LE model, always as an LE random address; the
    /// first text field of the address is its most significant byte. While a
    /// link of either kind is on its way or up, nothing changes.
    void connectBle(unsigned long address) override;
    /// Ends a TCP link (reason ClosedLocally), a connect in progress included,
    /// and waits for its thread, at most one 50 ms wait; ends a connected
    /// Bluetooth LE link. Nothing while a Bluetooth LE link is still
    /// connecting. Never call it from the disconnect callback.
    void disconnect() override;
    /// TCP: one write of the whole frame; a short write ends the link
    /// (ClosedLocally). Bluetooth LE: write commands of MTU - 3 bytes each, only
    /// while connected.
    void sendData(uint8_t const* data, unsigned long length) override;
    /// Signal strength of the Bluetooth LE link; throws BluetoothLE::Exception
    /// unless it is connected or when the adapter query fails.
    int16_t getRssi() override;

    /// The common starter of both TCP links: ip in network byte order, port in
    /// host order. Joins the thread of a link that ended by itself.
    void connectWifi(unsigned int ip, unsigned short port, WifiAccessKey const& accessKey);

    std::string const& hubHost() const { return hubHost_; }

private:
    void tcpThread(unsigned int ip, unsigned short port, WifiAccessKey accessKey);
    /// Connects the non-blocking socket within the connect time-out; false when
    /// it failed, timed out or the link was ended meanwhile.
    bool connectSocket(int fd, unsigned int ip, unsigned short port);
    /// Steps 3 to 7 of a link on a connected socket: returns when it ends.
    void runLink(int fd, WifiAccessKey const& accessKey);
    /// Reads what the socket holds and hands it to the engine; false when the
    /// link has ended.
    bool readAvailable(int fd, std::vector<uint8_t>& buffer);
    /// Moves the reason on only if nobody has ended the link on purpose meanwhile.
    void advanceReason(DisconnectReason from, DisconnectReason to);
    /// Joins the TCP thread unless it is the calling one.
    void joinConnectionThread();

    // The Bluetooth LE link's handlers, on the GATT client's connection thread.
    void bleConnected();
    void bleServicesDiscovered();
    void bleDisconnected(BluetoothLE::DisconnectReason reason);
    void bleLiveData(uint8_t const* data, size_t length);
    void sendBle(uint8_t const* data, unsigned long length);

    std::string const hubHost_;
    long const connectTimeoutMs_;
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

    // The command characteristic of the device service, found by discovery; it
    // points into the GATT client's service list.
    std::atomic<BluetoothLE::Characteristic*> commandCharacteristic_{nullptr};
    LiveDataDecoder liveData_;  // the GATT client's connection thread only
    // Last, so that its thread ends before the members it calls into go away.
    BluetoothLE ble_;
};
