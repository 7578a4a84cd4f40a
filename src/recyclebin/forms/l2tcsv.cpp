// The CSV of log2timeline. Some of its readers know quotes and some don't, so no cell
// has a comma or a quote. A semicolon in a cell is always one between two facts.

#include "recyclebin/forms/cell_text.h"
#include "recyclebin/forms/csv_line.h"
#include "recyclebin/forms/timeline.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/moments.h"
#include "recyclebin/views.h"

namespace hv {

namespace {

constexpr std::string_view refused = ",;\"";

constexpr std::string_view column_names[] = {
    "date",     "time",  "timezone", "MACB",   "source", "sourcetype",
    "type",     "user",  "host",     "short",  "desc",   "version",
    "filename", "inode", "notes",    "format", "extra"};

// A dash is an empty cell, so a text that is one is written as its number.
std::string text_cell(const std::u16string &text)
{
    if (text.empty()) return "-";
    return cell_text(text, text == u"-" ? "-" : refused);
}

struct source_texts {
    const char *source;
    const char *type;
};

source_texts source_of(timed_fact fact)
{
    switch (fact) {
    case timed_fact::deleted: return {"RECBIN", "Recycle Bin"};
    case timed_fact::logged: return {"FILE", "NTFS change journal"};
    default: return {"FILE", "NTFS file record"};
    }
}

std::string notes_cell(const deletion &item)
{
    std::string joined;
    for (const std::string &conflict : item.conflicts)
        joined.append(joined.empty() ? "" : " / ").append(conflict);
    return joined.empty() ? "-" : cell_text_of_utf8(joined, refused);
}

// "size: 33; state: in-bin; ..."
std::string extra_cell(const deletion &item, const volume_numbers &volumes)
{
    std::string extra;
    const auto add = [&extra](std::string_view name, const std::string &value) {
        if (value.empty()) return;
        extra.append(extra.empty() ? "" : "; ").append(name).append(": ").append(value);
    };
    const std::optional<u64> size = size_of(item);
    add("size", size ? std::to_string(*size) : "");
    add("state", std::string(word_for(item.state)));
    add("data", std::string(word_for(item.content)));
    std::string places = places_of(item).text();
    for (std::size_t at = 0; (at = places.find(", ", at)) != std::string::npos;)
        places.replace(at, 2, " + ");
    add("seen_in", places);
    add("metadata_file", cell_text(item.metadata_name, refused));
    add("data_file", cell_text(item.data_name, refused));
    add("volume", volumes.text(item.volume));
    add("id", item.id);
    return extra;
}

// What happened to one item at one moment. Own times that are the same share a line, as
// readers of this form expect.
struct moment_facts {
    timed_line first;
    std::string macb;
    std::string names;
    std::string sentences;

    explicit moment_facts(const timed_line &line)
        : first(line),
          macb(macb_for(line.fact)),
          names(timestamp_name(line.fact)),
          sentences(sentence_for(line.fact))
    {
    }

    // False if it has to have a line of its own.
    bool join(const timed_line &line)
    {
        if (line.item != first.item || line.filetime != first.filetime ||
            !is_own_time(first.fact) || !is_own_time(line.fact))
            return false;
        for (std::size_t at = 0; at < macb.size(); ++at)
            if (macb[at] == '.') macb[at] = macb_for(line.fact)[at];
        names.append("; ").append(timestamp_name(line.fact));
        sentences.append("; ").append(sentence_for(line.fact));
        return true;
    }
};

std::vector<std::string> cells_of(const moment_facts &facts,
                                  const volume_numbers &volumes)
{
    const deletion &item = *facts.first.item;
    const std::string moment = rfc3339(facts.first.filetime).value_or("");
    const auto [source, source_type] = source_of(facts.first.fact);
    const std::string path = text_cell(path_or_name(item));
    const std::optional<u64> entry = entry_number(item);
    return {moment.substr(5, 2) + "/" + moment.substr(8, 2) + "/" + moment.substr(0, 4),
            moment.substr(11, 8),
            "UTC",
            facts.macb,
            source,
            source_type,
            facts.names,
            text_cell(item.user),
            "-",
            path,
            facts.sentences + ": " + path,
            "2",
            path,
            entry ? std::to_string(*entry) : "-",
            notes_cell(item),
            "recyclebin",
            extra_cell(item, volumes)};
}

template <class Cells>
void write_line(std::ostream &out, const Cells &cells, bool formula_safe)
{
    std::string_view separator;
    for (const auto &cell : cells) {
        out << separator;
        separator = ",";
        if (formula_safe)
            out << without_formula(std::string(cell));
        else
            out << cell;
    }
    out << '\n';
}

} // namespace

void write_l2tcsv(std::ostream &out, const listing &told, const form_options &options)
{
    write_line(out, column_names, false);
    const volume_numbers volumes(told.found);
    const std::vector<timed_line> lines = timeline_of(told);
    for (std::size_t at = 0; at < lines.size();) {
        moment_facts facts(lines[at++]);
        while (at < lines.size() && facts.join(lines[at])) ++at;
        write_line(out, cells_of(facts, volumes), options.formula_safe);
    }
}

} // namespace hv
