#include <algorithm>
#include <memory>

#include "att_protocol.h"
#include "bluetooth_le.h"
#include "byte_io.h"

using namespace att;

namespace {

// Opcode and handle; a Prepare Write adds a 16-bit offset.
constexpr size_t kWriteHeader = 3;
constexpr size_t kPrepareWriteHeader = 5;
constexpr uint8_t kExecutePreparedWrites = 0x01;
constexpr uint16_t kNotifyBit = 0x0001;
constexpr uint16_t kIndicateBit = 0x0002;

}  // namespace

// Every operation needs the link first, then a characteristic that can do it.
BluetoothLE& BluetoothLE::connectedOwner(Characteristic const& characteristic) {
    if (characteristic.owner == nullptr) throw Exception(kInvalidState);
    characteristic.owner->requireConnected();
    return *characteristic.owner;
}

void BluetoothLE::Characteristic::read(Handler done) {
    BluetoothLE& link = connectedOwner(*this);
    if (valueHandle == 0) throw Exception(kInvalidValueHandle);
    if ((properties & kPropertyRead) == 0) throw Exception(kNoRead);
    auto const value = std::make_shared<std::vector<uint8_t>>();
    Request request;
    ByteWriter(request.pdu).write<uint8_t>(kReadRequest).write<uint16_t>(valueHandle);
    request.onData = [value](uint8_t const* data, size_t length) { value->insert(value->end(), data, data + length); };
    request.onComplete = [value, done = std::move(done)] {
        if (done) done(value->data(), value->size());
    };
    link.enqueue({std::move(request)});
}

// A value that does not fit one Write Request goes out in Prepare Write
// pieces; the device applies them all at the Execute Write.
void BluetoothLE::Characteristic::write(std::vector<uint8_t> const& value, Done done) {
    BluetoothLE& link = connectedOwner(*this);
    if (valueHandle == 0) throw Exception(kInvalidValueHandle);
    if ((properties & kPropertyWrite) == 0) throw Exception(kNoWrite);
    size_t const mtu = link.mtu();
    std::vector<Request> requests;
    if (value.size() + kWriteHeader <= mtu) {
        Request& request = requests.emplace_back();
        ByteWriter(request.pdu)
            .write<uint8_t>(kWriteRequest)
            .write<uint16_t>(valueHandle)
            .writeBytes(value.data(), value.size());
        request.onDone = std::move(done);
        link.enqueue(std::move(requests));
        return;
    }
    // An MTU below the header's size still moves one byte at a time.
    size_t const piece = std::max(mtu, kPrepareWriteHeader + 1) - kPrepareWriteHeader;
    for (size_t offset = 0; offset < value.size(); offset += piece) {
        Request& request = requests.emplace_back();
        ByteWriter(request.pdu)
            .write<uint8_t>(kPrepareWriteRequest)
            .write<uint16_t>(valueHandle)
            .write<uint16_t>(static_cast<uint16_t>(offset))
            .writeBytes(value.data() + offset, std::min(piece, value.size() - offset));
    }
    Request& execute = requests.emplace_back();
    ByteWriter(execute.pdu).write<uint8_t>(kExecuteWriteRequest).write<uint8_t>(kExecutePreparedWrites);
    execute.onDone = std::move(done);
    link.enqueue(std::move(requests));
}

void BluetoothLE::Characteristic::writeWithoutResponse(uint8_t const* data, size_t length) {
    BluetoothLE& link = connectedOwner(*this);
    if (valueHandle == 0) throw Exception(kInvalidValueHandle);
    if ((properties & kPropertyWriteWithoutResponse) == 0) throw Exception(kNoWriteWithoutResponse);
    if (length + kWriteHeader > link.mtu()) throw Exception(kLengthOverMtu);
    std::vector<uint8_t> pdu;
    ByteWriter(pdu).write<uint8_t>(kWriteCommand).write<uint16_t>(valueHandle).writeBytes(data, length);
    link.send(pdu);
}

void BluetoothLE::Characteristic::setNotify(bool notify, bool indicate, Done done) {
    BluetoothLE& link = connectedOwner(*this);
    if (cccHandle == 0) throw Exception(kInvalidCccHandle);
    if (notify && (properties & kPropertyNotify) == 0) throw Exception(kNoNotify);
    if (indicate && (properties & kPropertyIndicate) == 0) throw Exception(kNoIndicate);
    Request request;
    ByteWriter(request.pdu)
        .write<uint8_t>(kWriteRequest)
        .write<uint16_t>(cccHandle)
        .write<uint16_t>(static_cast<uint16_t>((notify ? kNotifyBit : 0) | (indicate ? kIndicateBit : 0)));
    request.onDone = std::move(done);
    link.enqueue({std::move(request)});
}
