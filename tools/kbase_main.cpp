// kbase: the library's file-facing jobs for a person at a terminal.
#include <CLI/CLI.hpp>

#include <iostream>

#include "basert/fileio.h"
#include "csv.h"
#include "kbase/version.h"
#include "recode.h"

int main(int argc, char** argv) {
    CLI::App app{"kbase: tools of the kbase building-design library"};
    app.set_version_flag("--version", std::string(KbaseVersion()));
    app.require_subcommand(1);

    kbase_tool::RecodeOptions recode;
    CLI::App* rc = app.add_subcommand(
        "recode",
        "Convert a text file between encodings.\n"
        "Code pages are Windows numbers: 1252 (Western), 1250 (Central European), 932 (Japanese),\n"
        "65001 (UTF-8), 1200/1201 (UTF-16 little/big endian), and any other Windows code page.\n"
        "Without --from, a byte-order mark decides, else the system code page.\n"
        "Exit codes: 0 done, 1 file error, 2 bad arguments or unknown code page,\n"
        "3 text that cannot be represented in the target or malformed input.\n"
        "The output file is only replaced when the whole conversion succeeded.");
    rc->add_option("input", recode.input, "Input file, or - for standard input")->required();
    rc->add_option("output", recode.output, "Output file, or - for standard output (default)");
    rc->add_option("-f,--from", recode.from, "Source code page (default: by mark, else the system's)");
    rc->add_option("-t,--to", recode.to, "Target code page (default: 65001, UTF-8)");
    rc->add_flag("-m,--bom", recode.mark, "Write a byte-order mark (UTF-8 and UTF-16 targets)");
    rc->add_option("-n,--normalize", recode.normalize, "Unicode normalisation form: C, D, KC or KD")
        ->check(CLI::IsMember({"C", "D", "KC", "KD"}));
    rc->add_flag("-r,--replace", recode.replace,
                 "Write '?' for characters the target lacks instead of failing");

    kbase_tool::CsvOptions csv;
    bool noProgress = false;
    CLI::App* cs = app.add_subcommand(
        "csv",
        "Describe a delimiter-separated file: the guessed delimiter, the title lines, each column's\n"
        "kinds (whole number, real, text), decimal commas, the row count. With --sum, --group or\n"
        "--sort, print the grouped totals or the sorted rows as CSV instead. Columns are named by\n"
        "the header (the last title line) or numbered from 1; COL:desc sorts descending.\n"
        "Exit codes: 0 done, 1 file error, 2 bad arguments.");
    cs->add_option("file", csv.input, "The CSV file")->required();
    cs->add_option("--sum", csv.sum, "Columns to total (per group)");
    cs->add_option("--group", csv.group, "Columns to group by");
    cs->add_option("--sort", csv.sort, "Columns to sort by (COL or COL:desc)");
    cs->add_option("-d,--delimiter", csv.delimiter, "The delimiter (default: guessed)");
    cs->add_option("-t,--titles", csv.titles, "Number of title lines (default: detected)");
    cs->add_option("-e,--encoding", csv.encoding, "Code page of the file (default: mark, UTF-8, else 1252)");
    cs->add_flag("--no-progress", noProgress, "Never draw a progress bar");

    CLI11_PARSE(app, argc, argv);
    if (rc->parsed()) return kbase_tool::Recode(recode, std::cin, std::cout, std::cerr);
    if (cs->parsed()) {
        csv.progress = !noProgress && UtFileIsTerminal(stderr);
        return kbase_tool::Csv(csv, std::cout, std::cerr);
    }
    return kbase_tool::kExitUsage;
}
