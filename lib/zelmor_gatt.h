#pragma once

// The device's GATT service on the Bluetooth LE models, in the lower-case
// 8-4-4-4-12 form.
inline constexpr char kZelmorServiceUuid[] = "ec7c0000-2c7b-1539-172f-29d041beab3e";
/// Notifications only: COBS-framed live-data records pushed by the device.
inline constexpr char kZelmorLiveDataUuid[] = "ec7c0001-2c7b-1539-172f-29d041beab3e";
/// Requests are written to it without response; answers come back as its notifications.
inline constexpr char kZelmorCommandUuid[] = "ec7c0002-2c7b-1539-172f-29d041beab3e";
