#pragma once

#include <cstdint>
#include <functional>

#include "client/connection/AgentConnection.h"
#include "client/report/ReportData.h"

/// Reads all events of the span of `data`, model by model, in memory that does not grow with their number,
/// and fills in the rest. `progress` is told how many events were read. Throws a ClientError where the agent
/// does not answer.
void ReadReportData(AgentConnection& agent, ReportData& data, const std::function<void(uint64_t)>& progress);
