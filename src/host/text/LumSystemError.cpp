#include "host/text/LumSystemError.h"

#include <system_error>

LumString LumSystemErrorText(int number) {
    return LumString(std::generic_category().message(number));
}
