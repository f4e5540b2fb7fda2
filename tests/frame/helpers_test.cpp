// Rounding, clamping, byte order, buffer and folder helpers.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string temp_path(const char *name) {
    return std::string(::testing::TempDir()) + "lv_" + std::to_string(getpid()) + "_" + name;
}

TEST(Records, DefaultsAreTheDocumentedOnes) {
    DimParam d;
    std::memset(&d, 0x55, sizeof d);
    init_dim_param(&d);
    const int32_t expected[10] = {0, 0, 3, 8, 8, 0, 0, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(&d, expected, sizeof expected));

    OptimParam o;
    std::memset(&o, 0x55, sizeof o);
    init_optim_param(&o);
    EXPECT_EQ(o.numThreads, 0);
    EXPECT_EQ(o.lowMemory, 0);
    EXPECT_EQ(o.sourceFile, nullptr);
    EXPECT_EQ(o.tempPath5, nullptr);
}

TEST(Rounding, ArrondiRoundsUpOnlyStrictlyAboveHalfAndNeverNegatives) {
    EXPECT_EQ(arrondi(2.5f), 2);
    EXPECT_EQ(arrondi(2.51f), 3);
    EXPECT_EQ(arrondi(0.5f), 0);
    EXPECT_EQ(arrondi(0.0f), 0);
    EXPECT_EQ(arrondi(-0.6f), 0);
    EXPECT_EQ(arrondi(-1.7f), -1);
    EXPECT_EQ(arrondi(1e6f + 0.75f), 1000001);
}

TEST(Rounding, SliderCurvesHitTheirEnds) {
    for (double g : {0.3, 1.0, 2.2}) {
        EXPECT_EQ(clipvar(100, g), 1000);
        EXPECT_EQ(fclipvar(100.0f, g), 1000);
    }
    EXPECT_EQ(clipvar(50, 1.0), 500);
    EXPECT_EQ(clipvar(0, 2.0), 0);
    // 0.5^2 * 1000 = 250 exactly: no round-up at a whole number.
    EXPECT_EQ(fclipvar(50.0f, 2.0), 250);
}

TEST(Clamping, IntegerAndFloatClamps) {
    EXPECT_EQ(lim8(-3), 0);
    EXPECT_EQ(lim8(300), 255);
    EXPECT_EQ(lim8int(128), 128);
    EXPECT_EQ(lim16(-1), 0);
    EXPECT_EQ(lim16(70000), 65535);
    EXPECT_EQ(lim16(int64_t{1} << 40), 65535);
    EXPECT_EQ(plafond(3, -2), -2);
    EXPECT_EQ(coupeh(10, 7.9f), 7);
    EXPECT_EQ(coupeh(7, 7.9f), 7);

    EXPECT_EQ(lim8f(254.9f), 254);
    EXPECT_EQ(lim8f(255.0f), 255);
    EXPECT_EQ(lim8f(1e30f), 255);
    EXPECT_EQ(lim8f(0.99f), 0);
    EXPECT_EQ(lim8f(-5.0f), 0);
    EXPECT_EQ(lim8f(std::nanf("")), 0);
    EXPECT_EQ(lim8f(INFINITY), 255);
    EXPECT_FLOAT_EQ(lerp(2.0f, 4.0f, 0.25f), 2.5f);
}

TEST(ByteOrder, ReadsMostSignificantFirstAndLetsEndOfFileIntoTheSum) {
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    const unsigned char bytes[] = {0x12, 0x34, 0x56, 0x78, 1, 2, 3, 4, 5, 6, 7, 8, 0xAB};
    std::fwrite(bytes, 1, sizeof bytes, f);
    std::rewind(f);
    EXPECT_EQ(fget4m(f), 0x12345678u);
    EXPECT_EQ(fget8m(f), 0x0102030405060708ull);
    // One byte left, then three end-of-file results (-1) enter the sum unchecked.
    uint32_t expected = 0xAB;
    for (int i = 0; i < 3; ++i) expected = (expected << 8) + 0xFFFFFFFFu;
    EXPECT_EQ(fget4m(f), expected);
    std::fclose(f);
}

TEST(Buffers, BlockCopies) {
    const char src[] = "abcdefghijkl";
    char dst[16] = {};
    EXPECT_EQ(copie_mem(src, 4, dst), 1);
    EXPECT_EQ(std::string(dst, 4), "abcd");
    EXPECT_EQ(gjmemcpyint(dst, 2, src, 6, 3), 1);
    EXPECT_EQ(std::string(dst, 5), "abghi");
    char block[4] = {};
    EXPECT_EQ(extractbuf(2, 4, src, block), 1);
    EXPECT_EQ(std::string(block, 4), "ijkl");
    char big[12] = {};
    EXPECT_EQ(loadbuf(1, 4, "WXYZ", big), 1);
    EXPECT_EQ(std::string(big + 4, 4), "WXYZ");

    // The name says "equal" but the answer is "different".
    EXPECT_EQ(memBlocksEqual(src, src, 12), 0);
    EXPECT_EQ(memBlocksEqual(src, "abcdefghijkX", 12), 1);
}

TEST(Buffers, RowCopyAndStrideWidening) {
    const unsigned char src[6] = {1, 2, 3, 4, 5, 6};
    unsigned char dst[8];
    std::memset(dst, 9, sizeof dst);
    EXPECT_EQ(copyImageRows(2, 3, 3, 4, src, dst), 2);
    const unsigned char want[8] = {1, 2, 3, 9, 4, 5, 6, 9};
    EXPECT_EQ(0, std::memcmp(dst, want, 8));
    EXPECT_EQ(copyImageRows(0, 3, 3, 4, src, dst), 0);

    // Equal widths: returns at once and writes nothing, even into another buffer.
    std::memset(dst, 9, sizeof dst);
    EXPECT_EQ(fillRowStride(0, 2, 0, 8, 3, 3, src, dst), 1);
    EXPECT_EQ(dst[0], 9);
    EXPECT_EQ(fillRowStride(0, 0, 0, 8, 3, 4, src, dst), 0);

    // In place: three 3-pixel rows of 16-bit grey widen to a pitch of 4 pixels.
    std::vector<uint16_t> buf(12, 0xEEEE);
    for (int i = 0; i < 9; ++i) buf[i] = static_cast<uint16_t>(100 + i);
    EXPECT_EQ(fillRowStride(0, 3, 0, 16, 3, 4, buf.data(), buf.data()), 3);
    const uint16_t widened[12] = {100, 101, 102, 0, 103, 104, 105, 0, 106, 107, 108, 0};
    EXPECT_EQ(0, std::memcmp(buf.data(), widened, sizeof widened));
}

TEST(Buffers, SaveAndLoadRoundTripAndShortFiles) {
    const std::string path = temp_path("buffer.bin");
    const char data[] = "0123456789";
    EXPECT_EQ(save_buffer(path.c_str(), data, 10), 10);

    char back[10] = {};
    int got = -7;
    EXPECT_EQ(load_buffer(path.c_str(), back, 10, &got), 1);
    EXPECT_EQ(got, 10);
    EXPECT_EQ(std::string(back, 10), "0123456789");

    got = -7;
    char more[20];
    EXPECT_EQ(load_buffer(path.c_str(), more, 20, &got), -1);
    EXPECT_EQ(got, -7) << "a short read leaves the size alone";
    EXPECT_EQ(load_buffer((path + ".missing").c_str(), more, 4, &got), -1);
    EXPECT_EQ(save_buffer("/nonexistent-dir/x.bin", data, 10), -1);
    EXPECT_EQ(lv_deletef(path.c_str()), 0);
    EXPECT_NE(lv_checkfolder(path.c_str()), 0);
}

TEST(Folders, MakeFolderChangesIntoTheParent) {
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    const std::string parent = temp_path("parent");
    ASSERT_EQ(mkdir(parent.c_str(), 0777), 0);
    EXPECT_EQ(lv_makefolder(parent.c_str(), "child"), 0);
    EXPECT_EQ(lv_checkfolder((parent + "/child").c_str()), 0);
    EXPECT_EQ(lv_checkfolder("child"), 0) << "the working directory stays in the parent";
    EXPECT_NE(lv_makefolder(parent.c_str(), "child"), 0) << "exists already";
    EXPECT_NE(lv_makefolder((parent + "/missing").c_str(), "x"), 0);
    ASSERT_EQ(chdir(cwd), 0);
    rmdir((parent + "/child").c_str());
    rmdir(parent.c_str());
}

} // namespace
