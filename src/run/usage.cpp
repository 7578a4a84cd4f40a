#include "run/usage.h"

#include "base/hv_string.h"
#include "base/hv_time.h"
#include "base/hv_time_text.h"

#include <climits>
#include <cstdio>
#include <unistd.h>

namespace hv {

namespace {

constexpr const char *usage_options =
    "\n"
    "Usage\n"
    "\n"
    "   veskit -file <file> \n"
    "   veskit -image <dd image> [-offset <vol offset>] [options] = ***\n"
    "\n"
    " Basic Options\n"
    "  -csv                         = comma separated value output\n"
    "  -csvl2t                      = log2timeline output\n"
    "\n"
    " Additional Options\n"
    "  -dateformat mm/dd/yyyy       = \"yyyy-mm-dd\" is the default\n"
    "  -timeformat hh:mm:ss         = \"hh:mm:ss.xxx\" is the default\n"
    "  -no_whitespace               = remove whitespace between csv delimiter\n"
    "  -csv_separator \"|\"           = change csv delimiter to a pipe char\n"
    "  -pipe                        = pipe specially named files to process\n"
    "  -filter <*partial*|*.ext>    = filters stdin data from -pipe option\n"
    "\n"
    " Experimental Options \n"
    "  -mftscan                     = scan $MFT entries [default option for images]\n"
    "  -rawscan [-cluster_size <#>] = scan each cluster [slow]; use with -image\n"
    "  -include_vss_clusters        = scan VSS clusters [use w/ -mftscan]\n"
    "  -include_unalloc_clusters    = scan unalloc clusters [use w/ -mftscan]\n"
    "\n";

std::string host_name()
{
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "<unk>";
}

std::string run_moment(const arg_list &args)
{
    std::string date_template = "mm/dd/yyyy";
    find_value(args, "-dateformat", date_template, 0);
    to_lower(date_template);
    std::string date;
    std::string clock;
    format_date_time(date, clock, time::now(), date_template, "hh:mm:ss");
    return date + " " + clock;
}

} // namespace

std::string banner()
{
    return "veskit " + std::string(version_literal) +
           ", reads what Windows keeps about deleted files";
}

void usage()
{
    const std::string text =
        std::string(77, '-') + "\n\n" + banner() + "\n" + usage_options;
    std::fputs(text.c_str(), stderr);
}

std::string run_header(const arg_list &args)
{
    const bool from_list = find_flag(args, "-pipe", 0);
    return banner() + "\nrun date: " + run_moment(args) + " UTC; host: " + host_name() +
           "\n\"command line: " + (from_list ? "<filelist> ... | " : "") +
           join_args(args, 0) + "\"\n";
}

} // namespace hv
