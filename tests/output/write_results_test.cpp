#include "output/write_table.h"

#include "options/run_options.h"
#include "output/write_timeline.h"
#include "trash/bin_names.h"

#include <gtest/gtest.h>

#include <sstream>

namespace hv {
namespace {

// FILETIMEs of 2024-01-31 12:00:00.1234567 and of whole minutes behind 12:00:00 UTC.
constexpr u64 noon = 133511760001234567;
constexpr u64 minutes(u64 count)
{
    return 133511760000000000 + count * 600000000;
}

// One row, paired with all that a volume can know of its file. A test changes what it
// is about.
struct sample {
    run_options options;
    inode_store records;
    trash_entry entry;
    u64 data = no_index;

    explicit sample(arg_list args)
    {
        args.insert(args.begin(), "/usr/bin/veskit.bin");
        EXPECT_EQ(parse_trash_options(options, args, "ver", is_evidence_name),
                  parse_result::good);
        data = records.add();
        records[data].entry = 51;
        records[data].first_parent = 41;
        records[data].si_modified = minutes(1);
        records[data].si_created = minutes(2);
        records[data].real_size = 255;
        records[data].position = 0x10000;
        records.set_path(data, "[r]\\$R1");
        entry.version = 2;
        entry.metadata_name = "$I1";
        entry.restored_path = "C:\\a,b|c\r\nd";
        entry.deleted_path = "C:\\";
        entry.deleted_time = noon;
        entry.user_sid = "S-1-5-9";
        entry.has_data_file = true;
        entry.data_record = data;
    }

    std::string written()
    {
        result_list entries;
        entries.add("key", entry);
        std::ostringstream out;
        write_results(out, entries, records, options.form);
        return out.str();
    }

    std::string row()
    {
        const std::string text = written();
        return text.substr(text.find('\n') + 1);
    }
};

TEST(Table, WritesEachFormAsTheUserChoseIt)
{
    struct form_case {
        arg_list args;
        const char *row;
    };
    const char *blank_23 = "                       ";
    const std::string padded =
        std::string("2024-01-31 12:00:00.123 | 2024-01-31 12:01:00.000 | ") + blank_23 +
        " | " + blank_23 +
        " | 2024-01-31 12:02:00.000 | 0x00ff   | Win10    | C:\\a,b;c\r\nd | S-1-5-9  "
        "| "
        "{[r]\\$R1=[\"inode\":\"0x33\";\"parent_inode\":\"0x29\"];\"src\":\"$I1\";"
        "\"offset\":\"0x010000\"} |         \n";
    EXPECT_EQ(sample({}).row(), padded);

    const std::vector<form_case> cases = {
        {{"-csv", "-no_whitespace", "-base10"},
         "2024-01-31 12:00:00.123,2024-01-31 12:01:00.000, , ,2024-01-31 "
         "12:02:00.000,255,"
         "Win10,C:\\a "
         "b|c[CRLF]d,S-1-5-9,{[r]\\$R1=[\"inode\":\"51\";\"parent_inode\":\"41\"];"
         "\"src\":\"$I1\";\"offset\":\"65536\"},\n"},
        {{"-csvgen", "-csv_separator", "TAB", "-dateformat", "dd/mm/yyyy",
          "-timeformat", "hh:mm:ss"},
         "31/01/2024 12:00:00\t31/01/2024 12:01:00\t \t \t31/01/2024 "
         "12:02:00\t0x00ff\tWin10\t"
         "C:\\a,b|c[CRLF]d\tS-1-5-9\t{[r]\\$R1=[\"inode\":\"0x33\";\"parent_inode\":"
         "\"0x29\"];"
         "\"src\":\"$I1\";\"offset\":\"0x010000\"}\t\n"},
        {{"-bodyfile"}, ""},
    };
    for (const form_case &one : cases) EXPECT_EQ(sample(one.args).row(), one.row);
    EXPECT_EQ(sample({"-bodyfile"}).written(), "\n");
    EXPECT_EQ(sample({"-xml"}).written(), "");
}

TEST(Table, KeepsABlankAheadOfEachTimeInPlainCsv)
{
    const std::string row = sample({"-csv"}).row();
    EXPECT_TRUE(row.starts_with(" 2024-01-31 12:00:00.123, 2024-01-31 12:01:00.000,"
                                "                        ,"))
        << row;
    const std::string line = sample({"-csv"}).written();
    EXPECT_TRUE(line.starts_with("deleted date [UTC]      ,modify date [UTC]       ,"))
        << line;
}

TEST(Table, ShowsAnUnpairedRowFromItsMetadataAlone)
{
    sample one({"-no_whitespace"});
    one.entry.has_data_file = false;
    one.entry.version = 0;
    one.entry.record_number = 2;
    one.entry.drive_number = 3;
    one.entry.file_size = 16777215;
    one.entry.deleted_time = 1; // not a time that is printed
    one.records[one.data].entry = 0;
    one.records[one.data].position = 0;
    one.entry.source_offset = 9;
    one.entry.other_info = "unalloc scan";
    EXPECT_EQ(
        one.row(),
        " |||||0x00ffffff|WinXP|C:\\|S-1-5-9|{\"trash_file\":\"[r]\\$R1\";\"rec#\":"
        "\"0x02\";\"vol#\":\"0x03\";\"src\":\"$I1\";\"offset\":\"0x09\"}|"
        "{\"other_info=[unalloc scan]}\n");
    // A carved row has no file at all.
    one.entry.data_record = no_index;
    one.entry.metadata_name.clear();
    one.entry.source_offset = 0;
    one.entry.other_info.clear();
    EXPECT_TRUE(one.row().ends_with(
        "|{\"trash_file\":\"\";\"rec#\":\"0x02\";\"vol#\":\"0x03\"}|\n"))
        << one.row();
}

TEST(Table, NamesTheZoneOfADownload)
{
    sample one({"-csvgen", "-csv_separator", "|"});
    const std::string zone =
        "[ZoneTransfer]\r\nZoneId=3\r\nZoneId=1\r\nHostUrl=http://x/?a=b\r\n";
    one.records.extras(one.data).zone_data.assign(zone.begin(), zone.end());
    EXPECT_TRUE(one.row().ends_with("|{zone_info={\"HostUrl\":\"http://x/?a=b\";"
                                    "\"ZoneId\":\"3 [internet]\"};}\n"))
        << one.row();
}

TEST(Table, MultilineGivesEachCellALine)
{
    const std::string text = sample({"-multiline"}).row();
    EXPECT_TRUE(text.starts_with("deleted date [UTC]: 2024-01-31 12:00:00.123\n"
                                 "modify date [UTC]: 2024-01-31 12:01:00.000\n"
                                 "access date [UTC]:  \n"))
        << text;
    EXPECT_TRUE(text.ends_with(
        "deleted_file: C:\\a,b|c\r\nd\nuser_sid: S-1-5-9\nsource_of_data: "
        "{[r]\\$R1=[\"inode\":\"0x33\";\"parent_inode\":\"0x29\"];"
        "\"src\":\"$I1\";\"offset\":\"0x010000\"}\nextra_info: \n\n"))
        << text;
}

TEST(Timeline, GivesALineForEachDistinctTime)
{
    sample one({"-csvl2t", "-username", "ann", "-hostname", "pc"});
    const std::string tail = ",C:\\a b|c\r\nd,C:\\a b|c[CRLF]d; size 0x00ff,2,$I1,51,"
                             "{\"parent_inode\":\"0x29\";\"offset\":\"0x010000\"},"
                             "veskit (halvern),Win10\n";
    EXPECT_EQ(
        one.written(),
        "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,"
        "filename,inode,notes,format,extra\n"
        "2024-01-31, 12:00:00.123,UTC,..C.,TRASH,RECYCLE_BIN,Deleted,ann,pc" +
            tail +
            "2024-01-31, 12:01:00.000,UTC,M...,TRASH,RECYCLE_BIN,Last Modified,ann,pc" +
            tail +
            "2024-01-31, 12:02:00.000,UTC,...B,TRASH,RECYCLE_BIN,Created,ann,pc" +
            tail);

    sample paired({"-csvl2t", "-pair_datetime", "-no_whitespace"});
    EXPECT_TRUE(paired.written().starts_with("date/time,timezone,"))
        << paired.written();
    EXPECT_TRUE(paired.row().starts_with("2024-01-31 12:00:00.123,UTC,..C.,"))
        << paired.row();
}

TEST(Timeline, WritesNothingWithoutEntries)
{
    output_form form;
    form.kind = form_kind::csvl2t;
    std::ostringstream out;
    write_results(out, {}, {}, form);
    EXPECT_EQ(out.str(), "");
}

TEST(Timeline, GroupsTheLettersOfEqualTimes)
{
    struct macb_case {
        u64 m, a, c, b;
        const char *rows;
    };
    const u64 one = minutes(1);
    const u64 two = minutes(2);
    const std::vector<macb_case> cases = {
        {one, one, one, one, "MACB m; a; d; b|"},
        {two, one, two, one, ".A.B a; b|M.C. m; d|"},
        {0, 0, one, 0, "..C. d|"},
        {0, 0, 1, 0, ""},                      // too early for a date
        {~u64{0}, one, ~u64{0}, 0, ".A.. a|"}, // negative times join nothing
        {minutes(4), minutes(3), two, one, "...B b|..C. d|.A.. a|M... m|"},
    };
    for (const macb_case &times : cases) {
        l2t_record record;
        record.modify_time = times.m;
        record.access_time = times.a;
        record.change_time = times.c;
        record.create_time = times.b;
        record.modify_label = "m";
        record.access_label = "a";
        record.change_label = "d";
        record.create_label = "b";
        l2t_rows rows;
        build_macb_rows(rows, record);
        std::string text;
        for (const auto &[key, row] : rows) text += row.macb + " " + row.label + "|";
        EXPECT_EQ(text, times.rows);
    }
}

} // namespace
} // namespace hv
