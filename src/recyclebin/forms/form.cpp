#include "recyclebin/forms/form.h"

#include "recyclebin/forms/writers.h"

#include <algorithm>
#include <array>

namespace hv {

std::span<const form> all_forms()
{
    static constexpr auto forms = std::to_array<form>({
        {"table", ".txt", "a line for each deletion, for people", write_table},
        {"story", "", "how each deletion is known, for people", write_stories},
        {"jsonl", ".jsonl", "a line of JSON for each, with its proof",
         write_json_lines},
        {"body", ".body", "a body file for mactime", write_body},
        {"csv", ".csv", "a line of comma-separated values for each", write_csv},
        {"html", ".html", "a report for a browser, in one file", write_html, ".htm"},
        {"l2tcsv", "", "log2timeline's CSV, a line for each moment", write_l2tcsv},
        {"sqlite", ".sqlite", "a database with all that is known", write_sqlite, ".db"},
        {"timesketch-csv", "", "CSV for Timesketch, a line for each moment",
         write_timesketch_csv},
        {"timesketch-jsonl", "", "JSON for Timesketch, a line for each moment",
         write_timesketch_json},
    });
    return forms;
}

const form *form_called(std::string_view name)
{
    const auto found = std::ranges::find(all_forms(), name, &form::name);
    return found == all_forms().end() ? nullptr : &*found;
}

const form *form_for_file(std::string_view path)
{
    const auto found = std::ranges::find_if(all_forms(), [&](const form &each) {
        const auto has = [path](std::string_view ending) {
            return !ending.empty() && path.ends_with(ending);
        };
        return has(each.ending) || has(each.other_ending);
    });
    return found == all_forms().end() ? nullptr : &*found;
}

} // namespace hv
