// The page of a report without its data. CMake makes ReportPage.cpp of the files in lab/report.
#pragma once

#include <string_view>
#include <vector>

namespace lab {

/// The pieces of the page, in order. Where the data belong, they hold @FACTS@ and @OBJECTS@.
const std::vector<std::string_view>& ReportPage();

}  // namespace lab
