#include "recyclebin/words.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

// In the order of the enumerations.
constexpr std::array<std::string_view, 6> state_words = {
    "in-bin", "emptied", "restored", "metadata-only", "data-only", "journal-only"};
constexpr std::array<std::string_view, 6> state_sentences = {
    "in the bin",
    "emptied from the bin",
    "restored from the bin",
    "in the bin, without its data",
    "in the bin, without its metadata",
    "known from the change journal alone"};
constexpr std::array<std::string_view, 5> data_words = {"none", "whole", "partly",
                                                        "gone", "unknown"};
constexpr std::array<std::string_view, 5> kind_words = {
    "metadata", "data-item", "index-name", "journal-line", "restored-item"};
constexpr std::array<std::string_view, 9> source_words = {
    "live",        "snapshot",   "shadow-store", "free-cluster", "record-slack",
    "index-slack", "file-slack", "journal",      "raw"};
constexpr std::array<std::string_view, 9> source_sentences = {
    "volume",          "snapshot",          "store of shadow copies",
    "free cluster",    "slack of a record", "slack of an index",
    "slack of a file", "change journal",    "outside of all volumes"};
constexpr std::array<std::string_view, 6> format_words = {
    "$I v1", "$I v2", "INFO2", "INFO2 280", "INFO", "INFO 280"};
constexpr std::array<std::string_view, 4> place_words = {"live", "snapshot", "carved",
                                                         "journal"};

template <class Enum, std::size_t Count>
std::string_view word_at(const std::array<std::string_view, Count> &words, Enum value)
{
    return words.at(static_cast<std::size_t>(value));
}

template <class Enum, std::size_t Count>
std::optional<Enum> value_of(const std::array<std::string_view, Count> &words,
                             std::string_view word)
{
    const auto found = std::find(words.begin(), words.end(), word);
    if (found == words.end()) return {};
    return static_cast<Enum>(found - words.begin());
}

} // namespace

std::string_view word_for(deletion_state state)
{
    return word_at(state_words, state);
}

std::string_view word_for(data_state state)
{
    return word_at(data_words, state);
}

std::string_view word_for(sighting_kind kind)
{
    return word_at(kind_words, kind);
}

std::string_view word_for(evidence_source source)
{
    return word_at(source_words, source);
}

std::string_view word_for(metadata_format format)
{
    return word_at(format_words, format);
}

std::string_view sentence_for(deletion_state state)
{
    return word_at(state_sentences, state);
}

std::string_view sentence_for(evidence_source source)
{
    return word_at(source_sentences, source);
}

std::optional<deletion_state> state_for(std::string_view word)
{
    return value_of<deletion_state>(state_words, word);
}

std::optional<evidence_source> source_for(std::string_view word)
{
    return value_of<evidence_source>(source_words, word);
}

std::optional<metadata_format> format_for(std::string_view word)
{
    return value_of<metadata_format>(format_words, word);
}

std::optional<seen_place> seen_place_for(std::string_view word)
{
    return value_of<seen_place>(place_words, word);
}

} // namespace hv
