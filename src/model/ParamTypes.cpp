#include "model/ParamTypes.h"

#include <array>

#include "contract/ParamTypeTokens.h"
#include "host/database/SqlText.h"
#include "host/text/LumFormat.h"

namespace {

bool AppendText(const LumContainer& values, const LumString& name, std::string& sql) {
    const LumString* const text = values.FindString(name);
    if (text == nullptr) {
        return false;
    }
    LumAppendQuoted(sql, text->View());
    return true;
}

bool AppendInteger(const LumContainer& values, const LumString& name, std::string& sql) {
    int32_t value = 0;
    if (!values.GetInt32(name, value)) {
        return false;
    }
    LumAppendNumber(sql, value);
    return true;
}

// A double is stored as quoted text with six decimals; the column's affinity makes it a number again.
bool AppendDouble(const LumContainer& values, const LumString& name, std::string& sql) {
    double value = 0;
    if (!values.GetDouble(name, value)) {
        return false;
    }
    sql.push_back('\'');
    LumAppendDouble(sql, value);
    sql.push_back('\'');
    return true;
}

bool AppendBoolean(const LumContainer& values, const LumString& name, std::string& sql) {
    bool value = false;
    if (!values.GetBool(name, value)) {
        return false;
    }
    sql.push_back(value ? '1' : '0');
    return true;
}

void AppendTextDefault(const LumString& text, std::string& sql) {
    LumAppendQuoted(sql, text.View());
}

void AppendPlainDefault(const LumString& text, std::string& sql) {
    sql.append(text.View());
}

void AppendDoubleDefault(const LumString& text, std::string& sql) {
    sql.append("'").append(text.View()).append("'");
}

void CopyText(const GenSqlResult& rows, uint32_t column, LumContainer& container, const LumString& name,
              uint32_t index) {
    LumString value;
    if (rows.GetColumn(column, value)) {
        container.SetString(name, value, index);
    }
}

void CopyInteger(const GenSqlResult& rows, uint32_t column, LumContainer& container, const LumString& name,
                 uint32_t index) {
    int64_t value = 0;
    if (rows.GetColumn(column, value)) {
        container.SetInt32(name, static_cast<int32_t>(value), index);
    }
}

void CopyDouble(const GenSqlResult& rows, uint32_t column, LumContainer& container, const LumString& name,
                uint32_t index) {
    double value = 0;
    if (rows.GetColumn(column, value)) {
        container.SetDouble(name, value, index);
    }
}

void CopyBoolean(const GenSqlResult& rows, uint32_t column, LumContainer& container, const LumString& name,
                 uint32_t index) {
    bool value = false;
    if (rows.GetColumn(column, value)) {
        container.SetBool(name, value, index);
    }
}

constexpr std::array<ParamTypeTraits, 6> kTable = {{
    {ParamType::kString, kTypeString, "TEXT", AppendText, AppendTextDefault, CopyText},
    {ParamType::kInteger, kTypeInteger, "INTEGER", AppendInteger, AppendPlainDefault, CopyInteger},
    {ParamType::kDouble, kTypeDouble, "FLOAT", AppendDouble, AppendDoubleDefault, CopyDouble},
    {ParamType::kTimestamp, kTypeTimestamp, "TIMESTAMP", AppendInteger, AppendPlainDefault, CopyInteger},
    {ParamType::kBoolean, kTypeBoolean, "BOOLEAN", AppendBoolean, AppendPlainDefault, CopyBoolean},
    {ParamType::kEnum, kTypeEnum, "ENUM", AppendText, AppendTextDefault, CopyText},
}};

}  // namespace

constinit const std::span<const ParamTypeTraits> kParamTypes{kTable};

const ParamTypeTraits* FindParamType(ParamType type) {
    const auto code = static_cast<uint32_t>(type);
    return code >= 1 && code <= kTable.size() ? &kTable[code - 1] : nullptr;
}
