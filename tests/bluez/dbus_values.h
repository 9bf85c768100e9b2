#pragma once

#include <dbus/dbus.h>

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// D-Bus values as the tests write them into messages (BlueZ's property types)
// and read them back as text, so that an answer can be compared as a whole.

using ManufacturerEntries = std::vector<std::pair<uint16_t, std::vector<uint8_t>>>;
using PropertyValue = std::variant<std::string, bool, int16_t, std::vector<std::string>, ManufacturerEntries>;
/// A property dictionary (a{sv}), in the order written.
using Properties = std::vector<std::pair<std::string, PropertyValue>>;

inline void appendText(DBusMessageIter* to, std::string const& text, int type = DBUS_TYPE_STRING) {
    char const* p = text.c_str();
    dbus_message_iter_append_basic(to, type, &p);
}

inline void appendBytes(DBusMessageIter* to, std::vector<uint8_t> const& bytes) {
    DBusMessageIter array;
    uint8_t const* data = bytes.data();
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE_AS_STRING, &array);
    dbus_message_iter_append_fixed_array(&array, DBUS_TYPE_BYTE, &data, static_cast<int>(bytes.size()));
    dbus_message_iter_close_container(to, &array);
}

/// Writes `value` as a variant.
inline void appendVariant(DBusMessageIter* to, PropertyValue const& value) {
    struct Writer {
        DBusMessageIter* variant;
        void operator()(std::string const& text) const { appendText(variant, text); }
        void operator()(bool flag) const {
            dbus_bool_t const b = flag ? TRUE : FALSE;
            dbus_message_iter_append_basic(variant, DBUS_TYPE_BOOLEAN, &b);
        }
        void operator()(int16_t number) const { dbus_message_iter_append_basic(variant, DBUS_TYPE_INT16, &number); }
        void operator()(std::vector<std::string> const& texts) const {
            DBusMessageIter array;
            dbus_message_iter_open_container(variant, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, &array);
            for (std::string const& text : texts) appendText(&array, text);
            dbus_message_iter_close_container(variant, &array);
        }
        void operator()(ManufacturerEntries const& entries) const {
            DBusMessageIter dictionary;
            dbus_message_iter_open_container(variant, DBUS_TYPE_ARRAY, "{qv}", &dictionary);
            for (auto const& [company, bytes] : entries) {
                DBusMessageIter entry, inner;
                dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
                dbus_message_iter_append_basic(&entry, DBUS_TYPE_UINT16, &company);
                dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "ay", &inner);
                appendBytes(&inner, bytes);
                dbus_message_iter_close_container(&entry, &inner);
                dbus_message_iter_close_container(&dictionary, &entry);
            }
            dbus_message_iter_close_container(variant, &dictionary);
        }
    };
    static constexpr char const* kSignatures[] = {"s", "b", "n", "as", "a{qv}"};
    DBusMessageIter variant;
    dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, kSignatures[value.index()], &variant);
    std::visit(Writer{&variant}, value);
    dbus_message_iter_close_container(to, &variant);
}

/// Writes an a{sv} dictionary.
inline void appendProperties(DBusMessageIter* to, Properties const& properties) {
    DBusMessageIter dictionary;
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "{sv}", &dictionary);
    for (auto const& [name, value] : properties) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(&entry, name);
        appendVariant(&entry, value);
        dbus_message_iter_close_container(&dictionary, &entry);
    }
    dbus_message_iter_close_container(to, &dictionary);
}

/// Writes the interfaces of one object (a{sa{sv}}), as InterfacesAdded and
/// GetManagedObjects carry them.
inline void appendInterfaces(DBusMessageIter* to, std::vector<std::pair<std::string, Properties>> const& interfaces) {
    DBusMessageIter dictionary;
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "{sa{sv}}", &dictionary);
    for (auto const& [name, properties] : interfaces) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(&entry, name);
        appendProperties(&entry, properties);
        dbus_message_iter_close_container(&dictionary, &entry);
    }
    dbus_message_iter_close_container(to, &dictionary);
}

/// The value at `iter` as text: strings quoted, dictionaries as {k: v},
/// arrays as [a, b], structures as (a, b), variants as their content.
inline std::string describe(DBusMessageIter* iter) {
    int const type = dbus_message_iter_get_arg_type(iter);
    auto list = [&](char const* open, char const* close) {
        DBusMessageIter items;
        dbus_message_iter_recurse(iter, &items);
        std::string out = open;
        for (bool first = true; dbus_message_iter_get_arg_type(&items) != DBUS_TYPE_INVALID;
             dbus_message_iter_next(&items), first = false)
            out += (first ? "" : ", ") + describe(&items);
        return out + close;
    };
    auto number = [&](auto zero) {
        dbus_message_iter_get_basic(iter, &zero);
        return std::to_string(zero);
    };
    switch (type) {
        case DBUS_TYPE_STRING:
        case DBUS_TYPE_OBJECT_PATH:
        case DBUS_TYPE_SIGNATURE: {
            char const* text = nullptr;
            dbus_message_iter_get_basic(iter, &text);
            return std::string("\"") + text + "\"";
        }
        case DBUS_TYPE_BOOLEAN: {
            dbus_bool_t flag = FALSE;
            dbus_message_iter_get_basic(iter, &flag);
            return flag ? "true" : "false";
        }
        case DBUS_TYPE_BYTE:
            return number(uint8_t{});
        case DBUS_TYPE_INT16:
            return number(int16_t{});
        case DBUS_TYPE_UINT16:
            return number(uint16_t{});
        case DBUS_TYPE_INT32:
            return number(int32_t{});
        case DBUS_TYPE_UINT32:
            return number(uint32_t{});
        case DBUS_TYPE_INT64:
            return number(int64_t{});
        case DBUS_TYPE_UINT64:
            return number(uint64_t{});
        case DBUS_TYPE_DOUBLE:
            return number(double{});
        case DBUS_TYPE_VARIANT: {
            DBusMessageIter inner;
            dbus_message_iter_recurse(iter, &inner);
            return describe(&inner);
        }
        case DBUS_TYPE_ARRAY:
            return dbus_message_iter_get_element_type(iter) == DBUS_TYPE_DICT_ENTRY ? list("{", "}") : list("[", "]");
        case DBUS_TYPE_DICT_ENTRY: {
            DBusMessageIter entry;
            dbus_message_iter_recurse(iter, &entry);
            std::string const key = describe(&entry);
            dbus_message_iter_next(&entry);
            return key + ": " + describe(&entry);
        }
        case DBUS_TYPE_STRUCT:
            return list("(", ")");
        default:
            return "?";
    }
}
