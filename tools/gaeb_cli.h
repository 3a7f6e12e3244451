// The command lines of `kbase boq` and `kbase gaeb show|csv|copy|check`, added to the program's
// parser by kbase_main.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <iostream>

#include "boq.h"
#include "gaeb_jobs.h"
#include "io.h"

namespace kbase_tool {

class GaebCommands {
  public:
    void Add(CLI::App& app) {
        boqApp_ = app.add_subcommand(
            "boq",
            "Turn a quantity takeoff (CSV with a header line) into a GAEB 2000 bill of quantities\n"
            "(DA 83, Windows-1252). Columns by header name: OZ, Kurztext, Menge, ME, and "
            "optionally\n"
            "Langtext, Bereich (a range's OZ) and Bereichstitel (its title); --map KEY=NAME names\n"
            "others. Lines of one OZ are summed exactly; their texts and units must agree. A\n"
            "dotted OZ outline (01.02.0010: two range levels and a position) nests the ranges.\n"
            "An OZ without dots (010010, ' 1 1   1': levels of fixed width, right-aligned) lies\n"
            "in the range its line names in Bereich, and a range lies in the longest range whose\n"
            "number begins its own (01 > 0101 > 01010010). Any error names the line, and then\n"
            "nothing is written. Memory grows with the positions, not the lines. `kbase gaeb "
            "csv`\n"
            "writes a bill back in this form.");
        boqApp_->footer(kExitCodeHelp);
        boqApp_->add_option("takeoff", boq_.input, "The takeoff CSV, or - for standard input")
            ->required();
        boqApp_->add_option("-o,--output", boq_.output, "The bill to write, or - (default)");
        boqApp_->add_option("--map", boq_.map,
                            "KEY=NAME: the header of column KEY (oz, kurztext, langtext, menge, "
                            "me, bereich, bereichstitel)");
        boqApp_->add_option("-d,--delimiter", boq_.delimiter,
                            "The delimiter, one character or 'tab' (default: guessed)");
        boqApp_->add_option("-e,--encoding", boq_.encoding,
                            "Code page of the takeoff (default: utf-8)");
        boqApp_->add_option("--name", boq_.name,
                            "The bill's name (default: the takeoff's file name)");
        boqApp_->add_option("--title", boq_.title, "The bill's title");
        boqApp_->add_option("--date", boq_.date, "The bill's date, DD.MM.YYYY (default: today)");

        gaebApp_ = app.add_subcommand(
            "gaeb",
            "Read a GAEB 2000 bill (tagged text, DA 83): show it as a tree, write its\n"
            "positions as CSV, copy it, or check it. Blocks and lines the library does\n"
            "not model are kept as written; a malformed file names its line.");
        gaebApp_->footer(kExitCodeHelp);
        gaebApp_->require_subcommand(1);
        struct Action {
            const char* name;
            const char* help;
            bool output;
        };
        for (const Action& a :
             {Action{"show", "Print the ranges and positions as a tree", false},
              Action{"csv", "Write the positions as CSV (RFC 4180, UTF-8) that kbase boq reads",
                     true},
              Action{"copy", "Load and store the bill (what is not modelled kept in place)", true},
              Action{"check", "Print the counts and anything kept as written, with its line",
                     false}}) {
            CLI::App* sub = gaebApp_->add_subcommand(a.name, a.help);
            sub->footer(kExitCodeHelp);
            sub->add_option("bill", gaeb_.input, "The bill, or - for standard input")->required();
            if (a.output)
                sub->add_option("output", gaeb_.output, "The file to write, or - (default)");
            actions_.push_back(sub);
        }
    }

    // The job's name for a parser error, or null when neither job was named.
    const char* Who() const {
        if (boqApp_->parsed()) return "kbase boq";
        return gaebApp_->parsed() ? "kbase gaeb" : nullptr;
    }

    // Reports a parser error of boq or gaeb as every job does; the usage exit code.
    int UsageError(const CLI::ParseError& e) const {
        const char* who = Who();
        std::cerr << who << ": " << e.what() << "\nRun '" << who
                  << " --help' for more information.\n";
        return kExitUsage;
    }

    // Runs the job that was named; -1 when none was.
    int Run() {
        if (boqApp_->parsed()) return Boq(boq_, std::cout, std::cerr);
        for (CLI::App* sub : actions_) {
            if (sub->parsed()) {
                gaeb_.action = sub->get_name();
                return Gaeb(gaeb_, std::cout, std::cerr);
            }
        }
        return -1;
    }

  private:
    BoqOptions boq_;
    GaebOptions gaeb_;
    CLI::App* boqApp_ = nullptr;
    CLI::App* gaebApp_ = nullptr;
    std::vector<CLI::App*> actions_;
};

}  // namespace kbase_tool
