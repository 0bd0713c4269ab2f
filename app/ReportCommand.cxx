#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/Report.h"
#include "io/FileNames.h"
#include "io/FitReader.h"
#include "util/Text.h"

#include <cstdio>
#include <memory>
#include <string>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo report fits.root -o fits.html
      makes a page to be opened in a browser, also from disk and without a network
  kelvo report fits.root -o fits.html --truth hits.truth.csv --worst 30
      with resolutions, pulls and the confusion of hypotheses, and more of the worst tracks
'kelvo fit ... --report fits.html' does the same directly after the fit.)";

struct ReportArguments {
  std::string fFits;
  std::string fOutput;
  ReportOptions fReport;
};

int Run(const ReportArguments& a) {
  CheckApart({a.fFits, a.fReport.fTruth}, {a.fOutput});
  FitReader fits(a.fFits);
  WriteReport(fits, a.fOutput, a.fReport);
  std::printf("written: %s\n", Printable(a.fOutput).c_str());
  return 0;
}

} // namespace

Command MakeReportCommand(CLI::App& program) {
  CLI::App* report = program.add_subcommand("report", "Makes a page with plots of a file of fits.");
  report->footer(kExamples);
  auto arguments = std::make_shared<ReportArguments>();
  report->add_option("fits", arguments->fFits, "File of fits, from kelvo fit")
      ->required()
      ->type_name("FILE");
  report->add_option("-o,--output", arguments->fOutput, "HTML page to be written")
      ->required()
      ->check(EndsIn({".html", ".htm"}))
      ->type_name("FILE");
  report
      ->add_option("--truth", arguments->fReport.fTruth,
                   "True tracks of simulated hits, from kelvo simulate: .truth.csv(.gz) or .root")
      ->type_name("FILE");
  report
      ->add_option("--worst", arguments->fReport.fWorst,
                   "How many of the worst tracks are listed and displayed")
      ->check(WholeNumberWithin(0, 1000))
      ->capture_default_str()
      ->type_name("N");
  return {report, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
