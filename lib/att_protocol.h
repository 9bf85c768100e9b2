#pragma once

#include <cstdint>

// The numbers of the Attribute Protocol and the GATT layer above it, shared by our GATT client and the
// simulated devices' GATT server.
namespace att {

// Opcodes. The low six bits name the PDU; bit 6 marks a command, which never
// gets an answer, not even an error.
inline constexpr uint8_t kOpcodeMask = 0x3F;
inline constexpr uint8_t kCommandFlag = 0x40;

inline constexpr uint8_t kErrorResponse = 0x01;
inline constexpr uint8_t kExchangeMtuRequest = 0x02;
inline constexpr uint8_t kExchangeMtuResponse = 0x03;
inline constexpr uint8_t kFindInformationRequest = 0x04;
inline constexpr uint8_t kFindInformationResponse = 0x05;
inline constexpr uint8_t kReadByTypeRequest = 0x08;
inline constexpr uint8_t kReadByTypeResponse = 0x09;
inline constexpr uint8_t kReadRequest = 0x0A;
inline constexpr uint8_t kReadResponse = 0x0B;
inline constexpr uint8_t kReadBlobRequest = 0x0C;
inline constexpr uint8_t kReadBlobResponse = 0x0D;
inline constexpr uint8_t kReadByGroupTypeRequest = 0x10;
inline constexpr uint8_t kReadByGroupTypeResponse = 0x11;
inline constexpr uint8_t kWriteRequest = 0x12;
inline constexpr uint8_t kWriteResponse = 0x13;
inline constexpr uint8_t kPrepareWriteRequest = 0x16;
inline constexpr uint8_t kExecuteWriteRequest = 0x18;
inline constexpr uint8_t kHandleValueNotification = 0x1B;
inline constexpr uint8_t kHandleValueIndication = 0x1D;
inline constexpr uint8_t kHandleValueConfirmation = 0x1E;
inline constexpr uint8_t kMultipleHandleValueNotification = 0x23;
inline constexpr uint8_t kWriteCommand = 0x52;

// Error codes of an Error Response.
inline constexpr uint8_t kInvalidHandle = 0x01;
inline constexpr uint8_t kReadNotPermitted = 0x02;
inline constexpr uint8_t kWriteNotPermitted = 0x03;
inline constexpr uint8_t kInvalidPdu = 0x04;
inline constexpr uint8_t kRequestNotSupported = 0x06;
inline constexpr uint8_t kInvalidOffset = 0x07;
inline constexpr uint8_t kAttributeNotFound = 0x0A;
inline constexpr uint8_t kInvalidAttributeValueLength = 0x0D;
inline constexpr uint8_t kUnsupportedGroupType = 0x10;
inline constexpr uint8_t kValueNotAllowed = 0x13;

// Attribute types of the GATT layer.
inline constexpr uint16_t kPrimaryService = 0x2800;
inline constexpr uint16_t kSecondaryService = 0x2801;
inline constexpr uint16_t kCharacteristicDeclaration = 0x2803;
inline constexpr uint16_t kClientCharacteristicConfiguration = 0x2902;

}  // namespace att
