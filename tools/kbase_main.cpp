// kbase: the library's file-facing jobs for a person at a terminal.
#include <CLI/CLI.hpp>
#include <iostream>
#include <new>

#include "basert/fileio.h"
#include "basert/files.h"
#include "codepages.h"
#include "csv.h"
#include "gaeb_cli.h"
#include "io.h"
#include "kbase/version.h"
#include "recode.h"
#include "subst.h"

namespace {

// Turns a code-page name into its number before CLI11 reads the option as one, so that a name it
// does not know is a parser error like any other.
CLI::Validator CodePage() {
    return CLI::Validator(
        [](std::string& text) {
            int cp = 0;
            if (!kbase_tool::ParseCodePage(text, cp)) {
                return "unknown code page '" + text +
                       "' (kbase recode --list shows the known ones)";
            }
            text = std::to_string(cp);
            return std::string();
        },
        "");
}

}  // namespace

int main(int argc, char** argv) {
    // Paths come in and data goes out as bytes: UTF-8 arguments, binary standard streams.
    UtUtf8Arguments(&argc, &argv);
    UtFileSetBinary(stdin);
    UtFileSetBinary(stdout);
    try {
        CLI::App app{"kbase: tools of the kbase building-design library"};
        app.set_version_flag("--version", std::string(KbaseVersion()));
        app.require_subcommand(1);
        // Options start with '-' everywhere; on Windows CLI11 would also take "/x" for one, and so
        // misread an absolute path.
        app.allow_windows_style_options(false);
        app.footer(kbase_tool::kExitCodeHelp);
        kbase_tool::GaebCommands gaebCommands;  // boq and gaeb
        gaebCommands.Add(app);

        kbase_tool::RecodeOptions recode;
        CLI::App* rc = app.add_subcommand(
            "recode",
            "Convert a text file between encodings.\n"
            "Code pages by Windows number or name: 1252 or windows-1252 (Western), 28591 or "
            "latin1,\n"
            "65001 or utf-8, 1200 or utf-16 (little endian), 1201 or utf-16be, 12000/12001 "
            "(UTF-32),\n"
            "932 or shift_jis, and every other page --list shows.\n"
            "Without --from, a byte-order mark decides, else the system code page.\n"
            "The text streams through in blocks, so any size takes a few MiB of memory. The "
            "output\n"
            "file is only replaced when the whole conversion succeeded.");
        rc->footer(kbase_tool::kExitCodeHelp);
        rc->add_option("input", recode.input, "Input file, or - for standard input")->required();
        rc->add_option("output", recode.output, "Output file, or - for standard output (default)");
        rc->add_option("-f,--from", recode.from,
                       "Source code page (default: by mark, else the system's)")
            ->transform(CodePage())
            ->type_name("CODEPAGE");
        rc->add_option("-t,--to", recode.to, "Target code page (default: 65001, UTF-8)")
            ->transform(CodePage())
            ->type_name("CODEPAGE");
        rc->add_flag("-m,--bom", recode.mark,
                     "Write a byte-order mark (UTF-8, UTF-16 and UTF-32 targets)");
        rc->add_option("-n,--normalize", recode.normalize,
                       "Unicode normalisation form: C, D, KC or KD")
            ->check(CLI::IsMember({"C", "D", "KC", "KD"}));
        rc->add_flag("-r,--replace", recode.replace,
                     "Write '?' for characters the target lacks instead of failing");
        // Handled while parsing, before the input is found missing.
        rc->add_flag_callback(
            "-l,--list",
            [] {
                kbase_tool::ListCodePages(std::cout);
                throw CLI::Success();
            },
            "List the code pages with their names, and exit");

        kbase_tool::CsvOptions csv;
        bool noProgress = false;
        CLI::App* cs = app.add_subcommand(
            "csv",
            "Describe a delimiter-separated file: the guessed delimiter, the title lines, each "
            "column's\n"
            "kinds (whole number, real, text), decimal commas, the row count. With --sum, --group "
            "or\n"
            "--sort, print the grouped totals or the sorted rows as CSV instead (RFC 4180, UTF-8, "
            "the\n"
            "file's delimiter). Columns are named by the header (the last title line) or numbered\n"
            "from 1; COL:desc sorts descending. Quoted fields are read as RFC 4180 says. The file "
            "is\n"
            "read once (- is standard input); memory grows with the groups, and sorting spills to\n"
            "temporary files beyond --memory. Rows are never dropped unless --footer says so.");
        cs->footer(kbase_tool::kExitCodeHelp);
        cs->add_option("file", csv.input, "The CSV file, or - for standard input")->required();
        cs->add_option("--sum", csv.sum, "Columns to total (per group)");
        cs->add_option("--group", csv.group, "Columns to group by");
        cs->add_option("--sort", csv.sort, "Columns to sort by (COL or COL:desc)");
        cs->add_option("-d,--delimiter", csv.delimiter,
                       "The delimiter, one character or 'tab' (default: guessed)");
        cs->add_option("-t,--titles", csv.titles, "Number of title lines (default: detected)");
        cs->add_option("--footer", csv.footer,
                       "Number of lines at the end to drop (notes under the data)");
        cs->add_option(
            "-e,--encoding", csv.encoding,
            "Code page of the file, number or name (default: mark, UTF-8 if valid, else 1252)");
        cs->add_flag(
            "--no-quotes", [&csv](int64_t) { csv.quotes = false; },
            "Read a quote as an ordinary character (no RFC 4180 quoting)");
        cs->add_option(
            "--memory", csv.memory,
            "Memory for sorting: rows held and merge buffers (default 1G; runs of at most "
            "32M are spilled to temporary files)");
        cs->add_flag("--no-progress", noProgress, "Never draw a progress bar");

        kbase_tool::SubstOptions subst;
        CLI::App* st = app.add_subcommand(
            "subst",
            "Fill a text template: every $NAME becomes the value of the variable NAME,\n"
            "like envsubst but with the library's rules: keys have no terminator (the\n"
            "first variable given whose $NAME starts there wins), values are filled again\n"
            "until nothing changes, --var values are typed by their form (32-bit whole\n"
            "number, real printed with 6 decimals, true/false, text). A line still\n"
            "changing after --max-passes passes (a value that refers to itself) is exit 3.\n"
            "Lines stream through, so any size takes memory for one line.");
        st->footer(kbase_tool::kExitCodeHelp);
        st->add_option("template", subst.input, "Template file, or - for standard input")
            ->required();
        st->add_option("output", subst.output, "Output file, or - for standard output (default)");
        st->add_option("--var", "A variable, NAME=VALUE (repeatable)")
            ->each([&subst](const std::string& v) {
                subst.definitions.push_back({false, v});
            })
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->type_name("NAME=VALUE");
        st->add_option("--env",
                       "An environment variable with its default, NAME=DEFAULT (repeatable)")
            ->each([&subst](const std::string& v) {
                subst.definitions.push_back({true, v});
            })
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->type_name("NAME=DEFAULT");
        st->add_option("--protocol", subst.protocol, "Write the variables' protocol lines to FILE");
        st->add_flag("--protocol-substitutions", subst.protocolSubstitutions,
                     "Also protocol every line that changed");
        st->add_option("--max-passes", subst.maxPasses, "Passes allowed per line (default 100)")
            ->check(CLI::Range(1, 1000000));

        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& e) {
            if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version, --list
            if (gaebCommands.Who() != nullptr) return gaebCommands.UsageError(e);
            // Every other parser error is a usage error, whatever number CLI11 gives it.
            const char* who = rc->parsed()   ? "kbase recode"
                              : cs->parsed() ? "kbase csv"
                              : st->parsed() ? "kbase subst"
                                             : "kbase";
            std::cerr << who << ": " << e.what() << "\nRun '" << who
                      << " --help' for more information.\n";
            return kbase_tool::kExitUsage;
        }
        if (rc->parsed()) return kbase_tool::Recode(recode, std::cerr);
        if (st->parsed()) return kbase_tool::Subst(subst, std::cerr);
        if (cs->parsed()) {
            csv.progress = !noProgress && UtFileIsTerminal(stderr);
            return kbase_tool::Csv(csv, std::cout, std::cerr);
        }
        if (const int gaebRc = gaebCommands.Run(); gaebRc >= 0) return gaebRc;
        return kbase_tool::kExitUsage;
    } catch (const std::bad_alloc&) {
        std::cerr << "kbase: out of memory\n";
        return kbase_tool::kExitIo;
    }
}
