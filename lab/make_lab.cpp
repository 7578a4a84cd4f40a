// Makes the laboratory's cases: for each a folder with its medium and the story of what
// happened on it. One version of the laboratory makes the same bytes on every machine.
//
// Usage: make_lab FOLDER [--only TEXT] | make_lab --list
//
// With --only, makes the cases whose names contain the text.

#include "lab/cases.h"

#include <exception>
#include <iostream>

namespace {

int make_all(const std::filesystem::path &folder, const std::string &only,
             const lab::case_makers &makers)
{
    int failures = 0;
    for (const lab::case_maker &maker : makers) {
        if (maker.name.find(only) == std::string::npos) continue;
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

} // namespace

int main(int argc, char **argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    lab::case_makers makers;
    lab::add_live_cases(makers);
    lab::add_emptied_cases(makers);
    lab::add_forgotten_cases(makers);
    lab::add_journal_cases(makers);
    lab::add_disk_cases(makers);
    lab::add_damage_cases(makers);
    lab::add_decoy_cases(makers);
    if (arguments == std::vector<std::string>{"--list"}) {
        for (const lab::case_maker &maker : makers) std::cout << maker.name << '\n';
        return 0;
    }
    if (arguments.size() == 1) return make_all(arguments[0], "", makers);
    if (arguments.size() == 3 && arguments[1] == "--only")
        return make_all(arguments[0], arguments[2], makers);
    std::cerr << "usage: make_lab FOLDER [--only TEXT] | make_lab --list\n";
    return 2;
}
