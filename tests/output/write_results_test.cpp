#include "output/write_table.h"

#include "options/run_options.h"
#include "output/write_timeline.h"
#include "trash/bin_names.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

namespace hv {
namespace {

// FILETIMEs of 2024-01-31 12:00:00.1234567 and of whole minutes after 12:00:00 UTC.
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
        records.edit(data).entry = 51;
        records.edit(data).first_parent = 41;
        records.edit(data).si_modified = minutes(1);
        records.edit(data).si_created = minutes(2);
        records.edit(data).real_size = 255;
        records.edit(data).position = 0x10000;
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
    const std::string no_times = std::string(25, ' ') + "|" + std::string(25, ' ');
    const std::string padded =
        "2024-01-31 12:00:00.123 | 2024-01-31 12:01:00.000 |" + no_times +
        "| 2024-01-31 12:02:00.000 | 0x00ff   | Win10    | C:\\a,b;c\r\nd | S-1-5-9  | "
        "{[r]\\$R1=[\"inode\":\"0x33\";\"parent_inode\":\"0x29\"];\"src\":\"$I1\";"
        "\"offset\":\"0x010000\"} |         \n";
    const std::pair<arg_list, const char *> cases[] = {
        {{}, padded.c_str()},
        {{"-csv", "-no_whitespace", "-base10"},
         "2024-01-31 12:00:00.123,2024-01-31 12:01:00.000, , ,2024-01-31 12:02:00.000,"
         "255,Win10,C:\\a b|c[CRLF]d,S-1-5-9,{[r]\\$R1=[\"inode\":\"51\";"
         "\"parent_inode\":\"41\"];\"src\":\"$I1\";\"offset\":\"65536\"},\n"},
        {{"-csvgen", "-csv_separator", "TAB", "-dateformat", "dd/mm/yyyy",
          "-timeformat", "hh:mm:ss"},
         "31/01/2024 12:00:00\t31/01/2024 12:01:00\t \t \t31/01/2024 12:02:00\t0x00ff\t"
         "Win10\tC:\\a,b|c[CRLF]d\tS-1-5-9\t{[r]\\$R1=[\"inode\":\"0x33\";"
         "\"parent_inode\":\"0x29\"];\"src\":\"$I1\";\"offset\":\"0x010000\"}\t\n"},
    };
    for (const auto &[args, row] : cases) EXPECT_EQ(sample(args).row(), row);
    EXPECT_EQ(sample({"-bodyfile"}).written(), "\n");
    EXPECT_EQ(sample({"-xml"}).written(), "");
}

TEST(Table, KeepsABlankBeforeEachTimeInPlainCsv)
{
    const std::string text = sample({"-csv"}).written();
    EXPECT_TRUE(text.starts_with("deleted date [UTC]      ,modify date [UTC]       ,"))
        << text;
    EXPECT_NE(text.find("\n 2024-01-31 12:00:00.123, 2024-01-31 12:01:00.000," +
                        std::string(24, ' ') + ","),
              std::string::npos);
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
    one.records.edit(one.data).entry = 0;
    one.records.edit(one.data).position = 0;
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

TEST(Table, MultilineWritesALineForEachCell)
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

TEST(Timeline, WritesALineForEachDistinctTime)
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

    const std::string paired =
        sample({"-csvl2t", "-pair_datetime", "-no_whitespace"}).written();
    EXPECT_TRUE(paired.starts_with("date/time,timezone,")) << paired;
    EXPECT_NE(paired.find("\n2024-01-31 12:00:00.123,UTC,..C.,"), std::string::npos);

    std::ostringstream out;
    write_results(out, {}, {}, one.options.form);
    EXPECT_EQ(out.str(), "") << "no column line without entries";
}

TEST(Timeline, GroupsTheLettersOfEqualTimes)
{
    const u64 one = minutes(1);
    const u64 two = minutes(2);
    // Modified, accessed, changed and created.
    const std::tuple<u64, u64, u64, u64, const char *> cases[] = {
        {one, one, one, one, "MACB m; a; d; b|"},
        {two, one, two, one, ".A.B a; b|M.C. m; d|"},
        {0, 0, one, 0, "..C. d|"},
        {0, 0, 1, 0, ""},                      // too early for a date
        {~u64{0}, one, ~u64{0}, 0, ".A.. a|"}, // negative times join nothing
        {minutes(4), minutes(3), two, one, "...B b|..C. d|.A.. a|M... m|"},
    };
    for (const auto &[m, a, c, b, expected] : cases) {
        l2t_record record;
        std::tie(record.modify_time, record.access_time, record.change_time,
                 record.create_time) = std::tie(m, a, c, b);
        record.modify_label = "m";
        record.access_label = "a";
        record.change_label = "d";
        record.create_label = "b";
        l2t_rows rows;
        build_macb_rows(rows, record);
        std::string text;
        for (const auto &[key, row] : rows) text += row.macb + " " + row.label + "|";
        EXPECT_EQ(text, expected);
    }
}

} // namespace
} // namespace hv
