// Attributes of PKCS#11 objects: templates to hand in, values that come back.

#ifndef TARVELOQT_CARDLIBS_TOKEN_ATTRIBUTES_H
#define TARVELOQT_CARDLIBS_TOKEN_ATTRIBUTES_H

#include "cardlibs/bytes.h"

#include <p11-kit/pkcs11.h>

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cardlibs::token {

// A template whose values it owns.
class Template {
public:
    Template& flag(CK_ATTRIBUTE_TYPE type, bool value);
    Template& number(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
    Template& bytes(CK_ATTRIBUTE_TYPE type, Bytes value);
    Template& text(CK_ATTRIBUTE_TYPE type, const std::string& value);

    CK_ATTRIBUTE* data() { return m_attributes.data(); }
    CK_ULONG size() const { return static_cast<CK_ULONG>(m_attributes.size()); }

private:
    // A deque: the attributes point into the values, which must not move.
    std::deque<Bytes> m_values;
    std::vector<CK_ATTRIBUTE> m_attributes;
};

// What an object told of itself; attributes that it lacks or keeps to itself are absent.
class Attributes {
public:
    void set(CK_ATTRIBUTE_TYPE type, Bytes value) { m_values[type] = std::move(value); }

    bool has(CK_ATTRIBUTE_TYPE type) const { return m_values.count(type) != 0; }
    // Empty when absent.
    const Bytes& bytes(CK_ATTRIBUTE_TYPE type) const;
    std::string text(CK_ATTRIBUTE_TYPE type) const;
    std::optional<bool> flag(CK_ATTRIBUTE_TYPE type) const;
    std::optional<CK_ULONG> number(CK_ATTRIBUTE_TYPE type) const;

private:
    std::map<CK_ATTRIBUTE_TYPE, Bytes> m_values;
};

}  // namespace cardlibs::token

#endif
