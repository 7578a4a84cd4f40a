#pragma once

#include "recyclebin/views.h"

#include <ostream>
#include <string>

/// One deletion for people. All texts are escaped.
namespace hv {

/// Its path before the deletion or, where no metadata states it, the name of its file
/// in the bin, "<$RX9Y8Z7.pdf>". A folder's ends in "\", a cut off one in "...".
std::string path_text(const deletion &item);
/// Bytes that the metadata states, else those of the data item; "-" for neither.
std::string size_text(const deletion &item);
/// The time of the deletion, or "-".
std::string deleted_text(const deletion &item);
/// "whole", "partly", "gone", "folder", or "-" where there is no data item.
std::string data_text(const deletion &item);

/// Ranges of bytes as "0x12d28-0x12d95"; what `limit` leaves over is counted.
std::string ranges_text(const std::vector<byte_range> &ranges, std::size_t limit);

/// Tells how a deletion is known: each sighting with its place on the medium, what
/// they disagree about, and what follows.
void write_story(std::ostream &out, const deletion &item);
/// Its parts: what was deleted; one sighting, by its number; what follows from all.
void write_story_head(std::ostream &out, const deletion &item);
void write_sighting(std::ostream &out, std::size_t number, const sighting &seen);
void write_story_end(std::ostream &out, const deletion &item);

} // namespace hv
