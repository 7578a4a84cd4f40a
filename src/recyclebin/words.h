#pragma once

#include "evidence/deletion.h"

#include <string_view>
#include <vector>

/// The words for what an examination tells, the same in every form and option.
namespace hv {

std::string_view word_for(deletion_state state);
std::string_view word_for(data_state state);
std::string_view word_for(sighting_kind kind);
std::string_view word_for(evidence_source source);
std::string_view word_for(metadata_format format);

/// A state in a sentence: "emptied from the bin".
std::string_view sentence_for(deletion_state state);
/// A source in a sentence: "free cluster".
std::string_view sentence_for(evidence_source source);

/// The opposite of `word_for`. Nothing for any other word.
std::optional<deletion_state> state_for(std::string_view word);
std::optional<evidence_source> source_for(std::string_view word);
std::optional<metadata_format> format_for(std::string_view word);

/// Where a deletion was seen, in the coarse terms of the option and of the table.
enum class seen_place { live, snapshot, carved, journal };
std::optional<seen_place> seen_place_for(std::string_view word);

} // namespace hv
