# Completion of veskit for bash.

_veskit()
{
    local cur prev words cword
    _init_completion || return
    case $prev in
    -file | -image | -mftfile | -out | -outfile | -diags) _filedir ;;
    -enumdir) _filedir -d ;;
    -dateformat) mapfile -t COMPREPLY < <(compgen -W "yyyy-mm-dd mm/dd/yyyy" -- "$cur") ;;
    -timeformat) mapfile -t COMPREPLY < <(compgen -W "hh:mm:ss hh:mm:ss.xxx" -- "$cur") ;;
    -offset | -cluster_size | -num_subdirs | -filter* | -cmd_st* | -csv_separator | \
        -partition | -username | -hostname) ;;
    *)
        mapfile -t COMPREPLY < <(compgen -W "-base10 -base16 -cluster_size
            -cmd_start_time -cmd_stop_time -csv -csv_separator -csvgen -csvl2t -dateformat
            -diags -enable_quoted_csv_fields -enumdir -file -filter -filter_sig
            -filter_skip -help -hostname -image -include_unalloc_clusters
            -include_vss_clusters -mftfile -mftscan -multiline -no_mirel -no_whitespace
            -num_subdirs -offset -out -pair_datetime -partition -pipe -profile -quiet
            -rawscan -timeformat -username" -- "$cur")
        ;;
    esac
} && complete -F _veskit veskit
