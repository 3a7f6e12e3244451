// kbase: the library's file-facing jobs for a person at a terminal.
#include <CLI/CLI.hpp>

#include <iostream>

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

    CLI11_PARSE(app, argc, argv);
    if (rc->parsed()) return kbase_tool::Recode(recode, std::cin, std::cout, std::cerr);
    return kbase_tool::kExitUsage;
}
