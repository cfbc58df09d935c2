// The files that a page is made of. The build turns them into a source file.
#pragma once

#include <string_view>

namespace report {

// They are constants of the program: a page needs no file beside it.
extern const std::string_view kPageTemplate;  // {{name}} stands for a part
extern const std::string_view kStyle;
extern const std::string_view kScript;
extern const std::string_view kChartLibrary;
extern const std::string_view kChartLibraryLicence;

}  // namespace report
