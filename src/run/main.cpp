#include "base/hv_console.h"
#include "base/hv_fileio.h"
#include "run/cmdline_ctx.h"
#include "run/run_modes.h"
#include "run/usage.h"
#include "trash/bin_names.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

namespace {

using namespace hv;

constexpr int failed_status = -1;

// `-signal` names something that a caller may wait for; this program has nothing to
// tell.
void ignore_signal_name(const std::string &) {}

// The next file that is opened would get the number of a closed standard descriptor,
// and results or messages would be written into it. A standard stream that was closed
// is made to refuse instead.
void claim_standard_descriptors()
{
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        const int refusing = descriptor == 0 ? O_WRONLY : O_RDONLY;
        if (open("/dev/null", refusing) != descriptor) _exit(failed_status);
    }
    // A reader that goes away shows as a failed write, and so does a limit on the size
    // of files.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

arg_list collect_args(int argc, char **argv)
{
    arg_list args;
    for (int i = 0; i < argc; ++i) args.emplace_back(argv[i] == nullptr ? "" : argv[i]);
    return args;
}

bool wants_help(arg_list &args)
{
    for (const char *name : {"-h", "-help", "/?", "--help"})
        if (take_flag(args, name, true)) return true;
    return args.size() == 1;
}

void report_write_error(int error)
{
    if (error != 0) print_error("prob writing results: %s\n", std::strerror(error));
}

void show_header_and_usage(const std::string &header)
{
    uni::stdout_output out;
    out << header << '\n';
    report_write_error(out.finish());
    usage();
}

// Runs the chosen mode with the header and the results going to `stream`.
void run_to(uni::result_output &stream, const std::string &header,
            const run_options &options, arg_list &args, run_input &input)
{
    stream << header;
    const run_mode mode = choose_run_mode(options, args, input);
    execute_run_mode(mode, input, options, stream);
}

void run(const std::string &header, const run_options &options, arg_list &args,
         run_input &input)
{
    if (options.out_path.empty()) {
        uni::stdout_output out;
        run_to(out, header, options, args, input);
        report_write_error(out.finish());
        return;
    }
    uni::fileio results_file;
    if (!results_file.open(options.out_path, uni::open_mode::write_truncate)) {
        print_error("prob opening results file: %s for writing\n",
                    options.out_path.c_str());
        return;
    }
    run_to(results_file.get_stream(), header, options, args, input);
    report_write_error(results_file.close());
}

// The options, and what they lead to on this machine.
parse_result read_command_line(run_options &options, run_input &input, arg_list &args)
{
    const parse_result result =
        parse_trash_options(options, args, version_literal, is_evidence_name);
    if (result != parse_result::good || !options.partition) return result;
    input.bin = find_mounted_bin(options.partition_root);
    if (!input.bin.recycle_dir.empty()) return result;
    debug_log(options.log(), "err: %s: no bin", options.partition_root.c_str());
    return parse_result::show_usage;
}

int run_command_line(arg_list args)
{
    if (args.empty()) args.emplace_back();
    cmdline_ctx context;
    if (wants_help(args)) {
        usage();
        return 0;
    }
    const std::string header = run_header(args);
    run_options options;
    run_input input;
    switch (read_command_line(options, input, args)) {
    case parse_result::good: break;
    case parse_result::show_usage: show_header_and_usage(header); return 0;
    case parse_result::end_process: return failed_status;
    }
    context.attach(options, ignore_signal_name);
    run(header, options, args, input);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    claim_standard_descriptors();
    try {
        return run_command_line(collect_args(argc, argv));
    } catch (const std::bad_alloc &) {
        // Like every run that can't do what it was asked for, it says so and ends well.
        print_error("prob allocating memory: there is not enough\n");
        return 0;
    }
}
