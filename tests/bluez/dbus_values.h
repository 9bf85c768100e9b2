#pragma once

#include <dbus/dbus.h>

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// BlueZ's property values as the tests write them into D-Bus messages.

using ManufacturerEntries = std::vector<std::pair<uint16_t, std::vector<uint8_t>>>;
using PropertyValue = std::variant<std::string, bool, int16_t, std::vector<std::string>, ManufacturerEntries>;
/// A property dictionary (a{sv}), in the order written.
using Properties = std::vector<std::pair<std::string, PropertyValue>>;

template <class Write>
void appendContainer(DBusMessageIter* to, int type, char const* signature, Write write) {
    DBusMessageIter inner;
    dbus_message_iter_open_container(to, type, signature, &inner);
    write(&inner);
    dbus_message_iter_close_container(to, &inner);
}

template <class T>
void appendBasic(DBusMessageIter* to, int type, T value) {
    dbus_message_iter_append_basic(to, type, &value);
}

inline void appendText(DBusMessageIter* to, std::string const& text) {
    appendBasic(to, DBUS_TYPE_STRING, text.c_str());
}

inline void appendKey(DBusMessageIter* to, std::string const& key) { appendText(to, key); }
inline void appendKey(DBusMessageIter* to, uint16_t key) { appendBasic(to, DBUS_TYPE_UINT16, key); }

/// A dictionary of `signature` ("{sv}"), its values written by `writeValue`.
template <class Key, class Value, class WriteValue>
void appendDictionary(DBusMessageIter* to, char const* signature, std::vector<std::pair<Key, Value>> const& entries,
                      WriteValue writeValue) {
    appendContainer(to, DBUS_TYPE_ARRAY, signature, [&](DBusMessageIter* dictionary) {
        for (auto const& item : entries)
            appendContainer(dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, [&](DBusMessageIter* entry) {
                appendKey(entry, item.first);
                writeValue(entry, item.second);
            });
    });
}

inline void appendBytes(DBusMessageIter* to, std::vector<uint8_t> const& bytes) {
    appendContainer(to, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE_AS_STRING, [&](DBusMessageIter* array) {
        uint8_t const* data = bytes.data();
        dbus_message_iter_append_fixed_array(array, DBUS_TYPE_BYTE, &data, static_cast<int>(bytes.size()));
    });
}

inline void appendVariant(DBusMessageIter* to, PropertyValue const& value) {
    struct Writer {
        DBusMessageIter* to;
        void operator()(std::string const& text) const { appendText(to, text); }
        void operator()(bool flag) const { appendBasic<dbus_bool_t>(to, DBUS_TYPE_BOOLEAN, flag); }
        void operator()(int16_t number) const { appendBasic(to, DBUS_TYPE_INT16, number); }
        void operator()(std::vector<std::string> const& texts) const {
            appendContainer(to, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, [&](DBusMessageIter* array) {
                for (std::string const& text : texts) appendText(array, text);
            });
        }
        void operator()(ManufacturerEntries const& entries) const {
            appendDictionary(to, "{qv}", entries, [](DBusMessageIter* entry, std::vector<uint8_t> const& bytes) {
                appendContainer(entry, DBUS_TYPE_VARIANT, "ay", [&](DBusMessageIter* in) { appendBytes(in, bytes); });
            });
        }
    };
    static constexpr char const* kSignatures[] = {"s", "b", "n", "as", "a{qv}"};
    appendContainer(to, DBUS_TYPE_VARIANT, kSignatures[value.index()],
                    [&](DBusMessageIter* variant) { std::visit(Writer{variant}, value); });
}

inline void appendProperties(DBusMessageIter* to, Properties const& properties) {
    appendDictionary(to, "{sv}", properties, appendVariant);
}
