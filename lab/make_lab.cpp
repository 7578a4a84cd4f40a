// Makes the laboratory's cases: for each a folder with its medium and the story of what
// happened on it. One version of the laboratory makes the same bytes on every machine.
//
// Usage: make_lab FOLDER [--first | --only TEXT] | make_lab --list
//
// With --first, makes the smallest case of each kind; with --only, the cases whose
// names contain the text.

#include "lab/cases.h"

#include <exception>
#include <iostream>

namespace {

int make_all(const std::filesystem::path &folder, const lab::case_makers &makers)
{
    int failures = 0;
    for (const lab::case_maker &maker : makers) {
        try {
            lab::told_case told{.name = maker.name};
            const lab::byte_vector medium = maker.make(told);
            lab::write_case(folder / maker.name, told, medium);
        } catch (const std::exception &error) {
            std::cerr << "make_lab: " << maker.name << ": " << error.what() << '\n';
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

lab::case_makers all_makers()
{
    lab::case_makers all;
    lab::add_live_cases(all);
    lab::add_emptied_cases(all);
    lab::add_forgotten_cases(all);
    lab::add_journal_cases(all);
    lab::add_snapshot_cases(all);
    lab::add_disk_cases(all);
    lab::add_damage_cases(all);
    lab::add_decoy_cases(all);
#ifdef LAB_MKNTFS // libntfs-3g and mkntfs are installed
    lab::add_linux_cases(all);
#endif
    return all;
}

} // namespace

int main(int argc, char **argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    lab::case_makers makers = all_makers();
    if (arguments == std::vector<std::string>{"--list"}) {
        for (const lab::case_maker &maker : makers) std::cout << maker.name << '\n';
        return 0;
    }
    if (arguments.size() == 2 && arguments[1] == "--first") {
        std::erase_if(makers, [](const auto &maker) { return !maker.is_first; });
    } else if (arguments.size() == 3 && arguments[1] == "--only") {
        std::erase_if(makers, [&](const auto &maker) {
            return maker.name.find(arguments[2]) == std::string::npos;
        });
    } else if (arguments.size() != 1 || arguments[0].starts_with("--")) {
        std::cerr
            << "usage: make_lab FOLDER [--first | --only TEXT] | make_lab --list\n";
        return 2;
    }
    return make_all(arguments[0], makers);
}
