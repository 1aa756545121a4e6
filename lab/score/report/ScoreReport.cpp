#include "lab/score/report/ScoreReport.h"

#include "lab/common/Failure.h"
#include "lab/material/Recognition.h"
#include "lab/score/report/ReportCsv.h"
#include "lab/score/report/ReportHtml.h"
#include "lab/score/report/ReportPdf.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace lab::score {
namespace {

void WriteText(const std::string& text, const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        Fail(kCannotWrite, path, Format("cannot be written: %s.", std::strerror(errno)));
    }
}

} // namespace

void RequireReportName(const std::string& path) {
    const std::string extension = Extension(path);
    if (extension != ".html" && extension != ".pdf" && extension != ".csv") {
        Fail(kUsage, path, "does not say by its suffix what kind of report it is.",
             "It must end in .html, .pdf or .csv.");
    }
}

void WriteReport(const ScoreResult& result, const std::string& path) {
    RequireReportName(path);
    const std::string extension = Extension(path);
    WriteText(extension == ".pdf"    ? PdfOf(result)
              : extension == ".html" ? HtmlOf(result)
                                     : CsvOf(result),
              path);
}

} // namespace lab::score
