// The report page's own arithmetic and markup: what the browser test can't tell apart.
#ifdef LV_HAVE_LVHDR
#include "report_page.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace lvhdr;

namespace {

// A planar RGBE image of grey pixels, one exponent each (0 is black).
HdrImage grey_rgbe(const std::vector<uint8_t> &exponents) {
    HdrImage im;
    im.width = int(exponents.size());
    im.height = 1;
    im.rgbe.assign(4 * exponents.size(), 128);
    for (size_t x = 0; x < exponents.size(); ++x)
        im.rgbe[3 * exponents.size() + x] = exponents[x];
    return im;
}

} // namespace

TEST(ReportPage, HistogramBinsStopsApartAndLeavesBlackOut) {
    // Two pixels two stops above a third, one black pixel.
    double first = 0;
    const std::vector<size_t> counts =
        luminance_histogram(grey_rgbe({129, 131, 131, 0}), 0.25, first);
    ASSERT_EQ(counts.size(), 9u);
    EXPECT_EQ(counts.front(), 1u);
    EXPECT_EQ(counts.back(), 2u);
    // A flat image's key lands on mid-grey at 0 EV; eight stops up it clips to white.
    const HdrImage flat = grey_rgbe({129, 129, 129});
    EXPECT_EQ(exposure_view(flat, 0).pixels, std::vector<uint8_t>(9, 117));
    EXPECT_EQ(exposure_view(flat, 8).pixels, std::vector<uint8_t>(9, 255));
}

TEST(ReportPage, CaptionsFromFileNamesCannotBreakTheMarkupAndMissingFolderFails) {
    ReportPage page;
    page.title = "<script>alert('x')</script> & \"co\"";
    page.results.push_back({"a.jpg", "b.jpg", "IMG_<1>.jpg", "f/2 & ISO 100", 0.5, 4, 3});
    const std::string dir = tooltest::scratch_dir();
    std::string err;
    ASSERT_TRUE(write_report_page(dir, page, err)) << err;
    std::stringstream html;
    html << std::ifstream(dir + "/index.html").rdbuf();
    EXPECT_EQ(html.str().find("<script>"), std::string::npos);
    EXPECT_NE(html.str().find("IMG_&lt;1&gt;.jpg"), std::string::npos);
    EXPECT_NE(html.str().find("f/2 &amp; ISO 100"), std::string::npos);
    EXPECT_FALSE(write_report_page(dir + "/missing", page, err));
    EXPECT_EQ(tooltest::count_entries(dir), 1);
}
#endif
