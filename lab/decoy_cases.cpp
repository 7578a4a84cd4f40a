// Bytes and names that look like those of a bin and are not. A row about one of them is
// an invented row.

#include "lab/cases.h"
#include "lab/people.h"

namespace lab {

namespace {

using namespace test_support;

told_decoy new_decoy(story &volume, const std::string &what)
{
    told_decoy made;
    made.path = volume.new_path() + u".decoy";
    made.size = volume.random().below(1U << 20U);
    made.deleted = volume.later();
    made.what = what;
    return made;
}

// The content that a `$I` file of this decoy would have.
byte_vector content_of(const told_decoy &decoy, u64 version)
{
    return dollar_i_builder()
        .version(version)
        .size(decoy.size)
        .time(decoy.deleted)
        .path(decoy.path)
        .bytes();
}

// Adds a decoy whose content is in the bytes of a file, and returns it with the bytes.
byte_vector add_decoy(told_case &told, story &volume, const std::string &what,
                      u64 version)
{
    told_decoy decoy = new_decoy(volume, what);
    byte_vector content = content_of(decoy, version);
    decoy.traces.push_back({"metadata", "", {content}});
    told.decoys.push_back(std::move(decoy));
    return content;
}

// A copied bin in archives: in one whose members begin at sectors, in one where they
// follow each other.
byte_vector archives(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, 3, seed);
    byte_vector aligned, packed;
    for (u64 i = 0; i < size; ++i) {
        const std::string name = "bin/" + volume.new_id(u"C:\\a.txt");
        const byte_vector content =
            add_decoy(told, volume, "a $I file inside an archive", 1 + i % 2);
        byte_vector header(512);
        put_text(header, 0, name);
        put_text(header, 257, "ustar");
        append(aligned, header);
        append(aligned, content);
        aligned.resize((aligned.size() + 511) / 512 * 512);
        append(packed,
               joined({bytes_of("PK\x03\x04"), byte_vector(26), bytes_of(name)}));
        append(packed, add_decoy(told, volume, "a $I file inside a zip", 1 + i % 2));
    }
    volume.file_with(5, "evidence.tar", aligned, true);
    volume.file_with(5, "evidence.zip", packed, true);
    volume.settle();
    return volume.image();
}

// Documents about the format: a hex dump's bytes, cut or with a made-up path, at the
// beginning of clusters. In use, or deleted (odd numbers).
byte_vector documents(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, 3, seed);
    for (u64 i = 0; i < size; ++i) {
        byte_vector page;
        if (i % 2 == 0) {
            page = add_decoy(told, volume, "an example in a document in use", 2);
        } else {
            told_decoy decoy = new_decoy(volume, "an example of an impossible version");
            page = content_of(decoy, 7);
            decoy.traces.push_back({"metadata", "", {page}});
            told.decoys.push_back(std::move(decoy));
        }
        page.resize(5000, 0x20);
        const u64 entry =
            volume.file_with(5, "format " + std::to_string(i), page, true);
        volume.settle();
        if (i % 2 == 1) volume.remove(entry);
    }
    volume.settle();
    return volume.image();
}

// Memory written to disk: contents at any multiple of 16 bytes.
byte_vector memory(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, 3, seed);
    byte_vector pages(4096 * (size + 2), 0xCC);
    for (u64 i = 0; i < size; ++i) {
        const u64 at = 4096 * i + 16 + 32 * volume.random().below(60);
        put_bytes(pages, at,
                  add_decoy(told, volume, "a $I file in a dump of memory", 1 + i % 2));
    }
    volume.file_with(5, "pagefile.sys", pages, true);
    volume.settle();
    return volume.image();
}

// Names of the bin elsewhere, and files in the bin that hold something else.
byte_vector names(told_case &told, u64 size, u64 seed)
{
    story volume(told, roomy(size + 8), seed);
    const u64 user = volume.user(ann);
    send_many(volume, {user}, 3, [&](u64) { return any_item(volume); });
    const u64 home = volume.folder(volume.folder(5, "Users"), "ben");
    for (u64 i = 0; i < size; ++i) {
        told_decoy decoy = new_decoy(volume, "a file named like metadata");
        const std::string id = volume.new_id(u"C:\\a.txt");
        const u64 parent = i % 3 == 0 ? user : home;
        const byte_vector text =
            bytes_of("shopping list " + std::to_string(seed) + "." + std::to_string(i));
        decoy.metadata_name = (i % 2 == 0 ? "$I" : "$R") + id;
        if (parent == user) decoy.metadata_name = "$I" + id;
        volume.file_with(parent, decoy.metadata_name, text);
        decoy.path =
            ntfs_structures::to_utf16("C:\\Users\\ben\\" + decoy.metadata_name);
        decoy.traces.push_back({"metadata", "", {text}});
        told.decoys.push_back(std::move(decoy));
    }
    volume.file_with(home, "INFO2", info2_header());
    volume.file(home, "Dc1.txt", 300);
    volume.settle();
    return volume.image();
}

} // namespace

void add_decoy_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("decoys/") + name, kind, {4, 30});
    };
    add("archives", archives);
    add("documents", documents);
    add("memory", memory);
    add("names", names);
}

} // namespace lab
