// The ghost selection file: its exact text, round trips, and files that lie.
#include <gtest/gtest.h>
#include <lumivantor/ghost.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string scratch(const char *name) {
    return ::testing::TempDir() + "lv_mask_" + name;
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void put(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

TEST(GhostMaskFile, WritesOneLineWithTwoBlanksBeforeEachLaterSelection) {
    const std::string path = scratch("worked");
    const int32_t exposures[] = {2, -1, 7};
    const int32_t points[] = {2, 0, 1};
    const int32_t coords[] = {1, 2, -3, 4, 50, 60};
    EXPECT_EQ(write_ghost_mask(path.c_str(), 640, 480, 3, exposures, points, coords), 3);
    EXPECT_EQ(slurp(path), "LumivantorGhostingMask W640 H480 N3 T3 S0 E2 P2 C1,2 -3,4  S1 E-1 P0 C "
                           "S2 E7 P1 C50,60 ");

    EXPECT_EQ(write_ghost_mask(path.c_str(), 9, 8, 0, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(slurp(path), "LumivantorGhostingMask W9 H8 N0 T0");
    // Shorter than the reader's minimum, though the writer made it; the data reader takes it.
    int32_t w, h, n;
    EXPECT_EQ(get_mask_info(path.c_str(), &w, &h, &n), -2);
    EXPECT_EQ(write_ghost_mask("/nonexistent-dir/x.mask", 1, 1, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(write_ghost_mask("/dev/full", 1, 1, 3, exposures, points, coords), -1);

    // A negative path length moves the writer back (the third path re-reads the second
    // point), but never before the first.
    const int32_t back[] = {2, -1, 1}, before[] = {-1, 1};
    EXPECT_EQ(write_ghost_mask(path.c_str(), 5, 5, 3, exposures, back, coords), 3);
    EXPECT_NE(slurp(path).find("P-1 C S2 E7 P1 C-3,4 "), std::string::npos);
    EXPECT_EQ(write_ghost_mask(path.c_str(), 5, 5, 2, exposures, before, coords), -1);
}

TEST(GhostMaskFile, SelectionsSurviveARoundTrip) {
    const std::string path = scratch("round");
    std::vector<int32_t> exposures = {0, 3, 1, 4}, points = {5, 3, 0, 12}, coords;
    for (int i = 0; i < 2 * 20; ++i)
        coords.push_back(i * 37 % 1000 - 200);
    ASSERT_EQ(write_ghost_mask(path.c_str(), 4000, 3000, 4, exposures.data(), points.data(),
                               coords.data()),
              20);
    int32_t w = 0, h = 0, n = 0;
    ASSERT_EQ(get_mask_info(path.c_str(), &w, &h, &n), 20);
    EXPECT_EQ(w, 4000);
    EXPECT_EQ(h, 3000);
    ASSERT_EQ(n, 4);
    std::vector<int32_t> e(n), p(n), c(2 * 20);
    ASSERT_EQ(get_mask_data(path.c_str(), e.data(), p.data(), c.data()), 20);
    EXPECT_EQ(e, exposures);
    EXPECT_EQ(p, points);
    EXPECT_EQ(c, coords);
}

// Each case: file text, the expected get_mask_info and get_mask_data results.
struct HostileCase {
    const char *what;
    std::string text;
    int info;
    int data;
};

TEST(GhostMaskFile, ReadersReturnACodeForEveryKindOfBadFile) {
    const std::string pad(60, ' ');
    const std::string head = "LumivantorGhostingMask W10 H10 N2 T3";
    const std::vector<HostileCase> cases = {
        {"empty", "", -2, -2},
        {"59 bytes", std::string(59, 'x'), -2, -2},
        {"foreign text of a valid size", std::string(80, 'x'), 0, -2},
        {"binary garbage", std::string("\x00\xff\x13LumivantorGhostingMask", 25) + pad, 0, -2},
        {"header only, selections missing", head + pad, 3, -2},
        {"truncated inside the points", head + " S0 E1 P2 C1,2 " + pad, 3, -1},
        {"more points than the total", head + " S0 E1 P2 C1,2 3,4  S1 E0 P2 C5,6 7,8 " + pad, 3,
         -3},
        {"total larger than the sum reads fine", head + " S0 E1 P1 C1,2  S1 E0 P1 C5,6 " + pad, 3,
         2},
        {"indices out of sequence only warn", head + " S7 E1 P1 C1,2  S7 E0 P2 C5,6 7,8 " + pad, 3,
         3},
        {"huge counts",
         "LumivantorGhostingMask W1 H1 N2147483647 T2147483647 S0 E0 P2147483647 C" + pad,
         2147483647, -1},
        {"overflowing numbers", "LumivantorGhostingMask W99999999999 H1 N1 T1 S0 E0 P1 C1,1 " + pad,
         1, 1},
    };
    for (const HostileCase &c : cases) {
        const std::string path = scratch("hostile");
        put(path, c.text);
        int32_t w, h, n;
        const int total = get_mask_info(path.c_str(), &w, &h, &n);
        EXPECT_EQ(total, c.info) << c.what;
        // A host can't allocate for lying counts; small arrays must still be safe.
        const size_t sel = n > 0 ? std::min<size_t>(n, 64) : 1;
        const size_t pts = total > 0 ? std::min<size_t>(total, 64) : 1;
        std::vector<int32_t> e(sel), p(sel), xy(2 * pts);
        EXPECT_EQ(get_mask_data(path.c_str(), e.data(), p.data(), xy.data()), c.data) << c.what;
    }
}

TEST(GhostMaskFile, SizeLimitsAndAFileThatGrewAfterItWasMeasured) {
    const std::string path = scratch("limits");
    const std::string head = "LumivantorGhostingMask W1 H1 N1 T1 S0 E0 P1 C1,1 ";
    int32_t w, h, n;
    put(path, head + std::string(1000000 - head.size(), ' '));
    EXPECT_EQ(get_mask_info(path.c_str(), &w, &h, &n), 1);
    put(path, head + std::string(1000001 - head.size(), ' '));
    EXPECT_EQ(get_mask_info(path.c_str(), &w, &h, &n), -2);

    put(path, head + std::string(60, ' '));
    ASSERT_EQ(get_mask_info(path.c_str(), &w, &h, &n), 1);
    int32_t e[1], p[1], xy[2] = {0, 0};
    // Now the file claims more than the arrays were sized for.
    put(path,
        "LumivantorGhostingMask W1 H1 N1 T5 S0 E0 P5 C1,1 2,2 3,3 4,4 5,5 " + std::string(60, ' '));
    EXPECT_EQ(get_mask_data(path.c_str(), e, p, xy), -2);
    const std::string unmeasured = scratch("unmeasured");
    std::remove(unmeasured.c_str());
    EXPECT_EQ(get_mask_data(unmeasured.c_str(), e, p, xy), -1);
    put(unmeasured, head + std::string(60, ' '));
    EXPECT_EQ(get_mask_data(unmeasured.c_str(), e, p, xy), -2);
}

} // namespace
