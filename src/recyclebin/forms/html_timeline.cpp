#include "recyclebin/forms/html_timeline.h"

#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/html_text.h"
#include "recyclebin/forms/user_labels.h"
#include "recyclebin/moments.h"

#include <algorithm>
#include <map>

namespace hv {

namespace {

constexpr u64 ticks_per_day = u64{864'000'000'000};
constexpr u64 max_bars = 366; // side by side
constexpr std::size_t max_lanes = 12;
constexpr std::size_t label_columns = 24;
// In units of the picture.
constexpr u64 label_width = 200;
constexpr u64 plot_width = 732;
constexpr u64 lane_height = 40;
constexpr u64 bar_height = 30; // of the busiest bar
constexpr u64 axis_height = 24;

using day_counts = std::map<u64, u64>; // by days since 1601

struct lane {
    std::string name; // escaped
    u64 total = 0;
    day_counts days;
};

// What all lanes have in common.
struct scale {
    u64 first_day = 0;
    u64 days_per_bar = 1;
    u64 bars = 1;
    u64 highest = 1; // count of the busiest bar

    u64 bar_of(u64 day) const { return (day - first_day) / days_per_bar; }
    u64 x_of(u64 bar) const { return label_width + bar * plot_width / bars; }
};

// The busiest users, and the others together in the last lane.
std::vector<lane> make_lanes(const listing &told)
{
    const user_labels labels(told);
    std::map<std::string, lane> by_name;
    for (const deletion *item : told.items) {
        if (!item->deleted || !rfc3339(*item->deleted)) continue;
        const std::string name =
            item->user.empty() ? "user not known" : labels.of(*item);
        lane &of_user = by_name[name];
        of_user.name = name;
        ++of_user.total;
        ++of_user.days[*item->deleted / ticks_per_day];
    }
    std::vector<lane> lanes;
    lanes.reserve(by_name.size());
    for (auto &[name, of_user] : by_name) lanes.push_back(std::move(of_user));
    std::ranges::stable_sort(lanes, std::ranges::greater(), &lane::total);
    if (lanes.size() <= max_lanes) return lanes;
    lane others;
    others.name = counted(lanes.size() - max_lanes + 1, "other user");
    for (std::size_t at = max_lanes - 1; at < lanes.size(); ++at)
        for (const auto &[day, count] : lanes[at].days) {
            others.days[day] += count;
            others.total += count;
        }
    lanes.resize(max_lanes - 1);
    lanes.push_back(std::move(others));
    return lanes;
}

day_counts bars_of(const lane &from, const scale &all)
{
    day_counts bars;
    for (const auto &[day, count] : from.days) bars[all.bar_of(day)] += count;
    return bars;
}

scale make_scale(const std::vector<lane> &lanes)
{
    scale all;
    u64 last_day = 0;
    all.first_day = lanes.front().days.begin()->first;
    for (const lane &each : lanes) {
        all.first_day = std::min(all.first_day, each.days.begin()->first);
        last_day = std::max(last_day, each.days.rbegin()->first);
    }
    const u64 days = last_day - all.first_day + 1;
    all.days_per_bar = (days + max_bars - 1) / max_bars;
    // So that a lone day isn't drawn across the whole picture.
    all.bars = std::max<u64>((days + all.days_per_bar - 1) / all.days_per_bar, 9);
    for (const lane &each : lanes)
        for (const auto &[bar, count] : bars_of(each, all))
            all.highest = std::max(all.highest, count);
    return all;
}

std::string date_text(u64 day)
{
    // The first moment of 1601 is FILETIME 0, which means no time.
    return rfc3339(std::max<u64>(day * ticks_per_day, 1)).value_or("").substr(0, 10);
}

std::string days_text(const scale &all, u64 bar)
{
    const u64 first = all.first_day + bar * all.days_per_bar;
    std::string text = date_text(first);
    if (all.days_per_bar > 1) text += " to " + date_text(first + all.days_per_bar - 1);
    return text;
}

void write_text(std::ostream &out, u64 x, u64 y, const char *anchor,
                const std::string &text)
{
    out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">"
        << html_escaped(text) << "</text>\n";
}

void write_lane(std::ostream &out, const lane &from, const scale &all, u64 bottom)
{
    out << "<g>\n";
    write_text(out, label_width - 10, bottom - 6, "end",
               fit_end(from.name, label_columns) + " (" + grouped(from.total) + ")");
    for (const auto &[bar, count] : bars_of(from, all)) {
        const u64 height = std::max<u64>(count * bar_height / all.highest, 2);
        const u64 width = std::max<u64>(all.x_of(bar + 1) - all.x_of(bar), 3) - 1;
        out << "<rect class=\"bar\" x=\"" << all.x_of(bar) << "\" y=\""
            << bottom - height << "\" width=\"" << width << "\" height=\"" << height
            << "\"><title>" << html_escaped(days_text(all, bar)) << ", "
            << html_escaped(from.name) << ": " << counted(count, "deletion")
            << "</title></rect>\n";
    }
    out << "<line class=\"axis\" x1=\"" << label_width << "\" y1=\"" << bottom
        << "\" x2=\"" << label_width + plot_width << "\" y2=\"" << bottom << "\"/>\n"
        << "</g>\n";
}

void write_axis(std::ostream &out, const scale &all, u64 bottom)
{
    constexpr u64 ticks = 4;
    for (u64 tick = 0; tick <= ticks; ++tick) {
        const u64 bar = (all.bars - 1) * tick / ticks;
        write_text(out, (all.x_of(bar) + all.x_of(bar + 1)) / 2, bottom, "middle",
                   date_text(all.first_day + bar * all.days_per_bar));
    }
}

std::string caption(const scale &all, u64 without_time)
{
    std::string text = all.days_per_bar == 1
                           ? "A bar is a day"
                           : "A bar is " + counted(all.days_per_bar, "day");
    text += " (UTC); the highest is " + counted(all.highest, "deletion") + ".";
    if (without_time > 0)
        text += " " + counted(without_time, "deletion") +
                (without_time == 1 ? " has" : " have") +
                " no known time and no place in the picture.";
    return text;
}

} // namespace

void write_timeline_picture(std::ostream &out, const listing &told)
{
    const std::vector<lane> lanes = make_lanes(told);
    if (lanes.empty()) {
        out << "<p>No deletion has a known time.</p>\n";
        return;
    }
    const scale all = make_scale(lanes);
    u64 with_time = 0;
    const u64 height = lanes.size() * lane_height + axis_height;
    out << "<figure>\n<svg viewBox=\"0 0 " << label_width + plot_width + 40 << " "
        << height << "\" role=\"img\" aria-label=\"Deletions by day and user\">\n";
    u64 bottom = 0;
    for (const lane &each : lanes) {
        with_time += each.total;
        write_lane(out, each, all, bottom += lane_height);
    }
    write_axis(out, all, height - 6);
    out << "</svg>\n<figcaption>" << caption(all, told.items.size() - with_time)
        << "</figcaption>\n</figure>\n";
}

} // namespace hv
