#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The known name that is most like `given`: letter case aside, at most a third of it (but two letters of a
/// short one) left out, put in, replaced or swapped with its neighbour. Empty where none is.
[[nodiscard]] std::string NearestName(std::string_view given, const std::vector<std::string>& known);

/// "; did you mean 'NAME'?", or nothing where no name is near.
[[nodiscard]] std::string DidYouMean(std::string_view given, const std::vector<std::string>& known);
