#include "host/database/SqlText.h"

#include <utility>

void LumAppendQuoted(std::string& sql, std::string_view text) {
    sql.push_back('\'');
    std::size_t from = 0;
    for (std::size_t quote = text.find('\''); quote != std::string_view::npos;
         quote = text.find('\'', from)) {
        sql.append(text.substr(from, quote + 1 - from)).push_back('\'');
        from = quote + 1;
    }
    sql.append(text.substr(from)).push_back('\'');
}

LumString LumQuoted(std::string_view text) {
    std::string quoted;
    LumAppendQuoted(quoted, text);
    return LumString(std::move(quoted));
}
