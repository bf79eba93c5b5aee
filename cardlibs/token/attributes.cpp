#include "cardlibs/token/attributes.h"

#include <cstring>

namespace cardlibs::token {

Template& Template::flag(CK_ATTRIBUTE_TYPE type, bool value)
{
    return bytes(type, {static_cast<unsigned char>(value ? CK_TRUE : CK_FALSE)});
}

Template& Template::number(CK_ATTRIBUTE_TYPE type, CK_ULONG value)
{
    Bytes raw(sizeof value);
    std::memcpy(raw.data(), &value, sizeof value);
    return bytes(type, std::move(raw));
}

Template& Template::bytes(CK_ATTRIBUTE_TYPE type, Bytes value)
{
    m_values.push_back(std::move(value));
    Bytes& kept = m_values.back();
    m_attributes.push_back({type, kept.data(), static_cast<CK_ULONG>(kept.size())});
    return *this;
}

Template& Template::text(CK_ATTRIBUTE_TYPE type, const std::string& value)
{
    return bytes(type, Bytes(value.begin(), value.end()));
}

const Bytes& Attributes::bytes(CK_ATTRIBUTE_TYPE type) const
{
    static const Bytes none;
    const auto found = m_values.find(type);
    return found == m_values.end() ? none : found->second;
}

std::string Attributes::text(CK_ATTRIBUTE_TYPE type) const
{
    const Bytes& value = bytes(type);
    return std::string(value.begin(), value.end());
}

std::optional<bool> Attributes::flag(CK_ATTRIBUTE_TYPE type) const
{
    const Bytes& value = bytes(type);
    if (value.size() != sizeof(CK_BBOOL))
        return std::nullopt;
    return value[0] != CK_FALSE;
}

std::optional<CK_ULONG> Attributes::number(CK_ATTRIBUTE_TYPE type) const
{
    const Bytes& value = bytes(type);
    CK_ULONG number = 0;
    if (value.size() != sizeof number)
        return std::nullopt;
    std::memcpy(&number, value.data(), sizeof number);
    return number;
}

}  // namespace cardlibs::token
