#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "events/Period.h"
#include "host/text/LumString.h"
#include "model/Model.h"

/// What an aggregation task covers: both ends cut to the start of their period, the start never before
/// `last`, up to which the model has been aggregated. Nothing where that leaves no time.
[[nodiscard]] std::optional<EventWindow> AggregationWindow(Policy policy, LumSeconds start, LumSeconds end,
                                                           LumSeconds last);

/// The SQL expression whose value is the same for all rows that become one aggregated event, besides group
/// and device; empty for a policy without period. `%%d` reaches SQLite as it stands and means a percent sign
/// and the letter d there, not the day of the month: rows of several days with the same remaining fields
/// become one event. That is how it has always been, and it stays.
[[nodiscard]] std::string_view BucketExpression(Policy policy);

/// The statement that fills the automatic model from the events of its source model in `window`.
[[nodiscard]] LumString BuildAggregation(const Model_t& model, EventWindow window);

/// Fills the automatic model from the events of its source model between two moments and moves its last
/// aggregation time to the end of that window, in one transaction. With aggregation switched off, or the
/// model disabled, the time moves all the same and the events are passed over for good. True where the window
/// was dealt with; false for null, for a model that is not automatic and where the database refused, which
/// leaves the window to the next task. Runs on the processor thread.
bool AggregateEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end, bool scheduled);

/// The setting that lets automatic models be filled.
extern std::atomic<bool> AggregationEnabled;
