#pragma once

#include <string>

#include "client/report/ReportData.h"

/// The report as one HTML page that needs nothing else: no script, no font, no picture from anywhere. What
/// comes from events is shown as text, whatever it holds.
[[nodiscard]] std::string ReportAsHtml(const ReportData& data);
