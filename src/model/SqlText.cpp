#include "model/SqlText.h"

void AppendQuoted(std::string& sql, std::string_view text) {
    sql.push_back('\'');
    std::size_t from = 0;
    for (std::size_t quote = text.find('\''); quote != std::string_view::npos;
         quote = text.find('\'', from)) {
        sql.append(text.substr(from, quote + 1 - from)).push_back('\'');
        from = quote + 1;
    }
    sql.append(text.substr(from)).push_back('\'');
}
