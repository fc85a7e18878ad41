#include "fleet/forward/BrokerAnswer.h"

#include <nlohmann/json.hpp>

#include "fleet/forward/FlatJson.h"

BrokerAnswer ReadBrokerAnswer(std::string_view data) {
    BrokerAnswer answer;
    // A refusal may bear the number 0, which no batch has.
    if (FlatJson members; members.Read(data) && members.Number("seq").value_or(0) > 0) {
        answer.sequence = members.Number("seq");
        return answer;
    }
    answer.reason = "it does not say why";
    const nlohmann::json json = nlohmann::json::parse(data, nullptr, false);
    const auto error = json.is_object() ? json.find("error") : json.end();
    if (error != json.end() && error->is_object()) {
        if (const auto text = error->find("description"); text != error->end() && text->is_string()) {
            answer.reason = text->get<std::string>();
        }
        if (const auto code = error->find("err_code"); code != error->end() && code->is_number_integer()) {
            answer.code = code->get<int64_t>();
        }
    }
    return answer;
}
