#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "machine/source/Source.h"

/// Every event that is made from a record of a log bears the number of that record, so that the store itself
/// tells which records are in it. It is made of what the record says and where it stands, so it is the same
/// whenever and from whichever copy the record is read.

/// The parameter that holds it, as 16 hexadecimal digits.
inline constexpr char kRecordParam[] = "Record";
/// The parameter that holds the moment when it happened.
inline constexpr char kTimeParam[] = "Time";

/// The first 64 bits of the MD5 digest of `identity`; never 0.
[[nodiscard]] uint64_t RecordId(std::string_view identity);
[[nodiscard]] std::string RecordText(uint64_t record);
/// 0 for a text that RecordText does not make.
[[nodiscard]] uint64_t ParseRecordText(std::string_view text);

/// Sets the parameter to FieldText of what is known; where nothing is, the model's default stands.
void SetKnownText(MachineEvent& event, const char* param, std::string_view text);

/// Gives the event its number and its time.
void SetIdentity(MachineEvent& event, uint64_t record, int32_t time);
