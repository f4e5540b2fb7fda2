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
    EXPECT_EQ(o.tempPath5, nullptr);
}

TEST(Rounding, RoundsUpOnlyStrictlyAboveHalfAndNeverRoundsNegatives) {
    EXPECT_EQ(arrondi(2.5f), 2);
    EXPECT_EQ(arrondi(2.51f), 3);
    EXPECT_EQ(arrondi(0.5f), 0);
    EXPECT_EQ(arrondi(-0.6f), 0);
    EXPECT_EQ(arrondi(-1.7f), -1);
    for (double g : {0.3, 1.0, 2.2})
        EXPECT_EQ(clipvar(100, g), 1000);
    EXPECT_EQ(fclipvar(50.0f, 2.0), 250) << "a whole result is not rounded up";
    EXPECT_EQ(coupeh(10, 7.9f), 7);
}

TEST(Clamping, EightBitFloatClampTruncatesAndSendsNanToZero) {
    EXPECT_EQ(lim8f(254.9f), 254);
    EXPECT_EQ(lim8f(255.0f), 255);
    EXPECT_EQ(lim8f(INFINITY), 255);
    EXPECT_EQ(lim8f(0.99f), 0);
    EXPECT_EQ(lim8f(-5.0f), 0);
    EXPECT_EQ(lim8f(std::nanf("")), 0);
    EXPECT_EQ(lim8(300), 255);
    EXPECT_EQ(lim16(int64_t{1} << 40), 65535);
    EXPECT_EQ(lim16(-1), 0);
}

TEST(ByteOrder, ReadsMostSignificantFirstAndLetsEndOfFileIntoTheSum) {
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    const unsigned char bytes[] = {0x12, 0x34, 0x56, 0x78, 1, 2, 3, 4, 5, 6, 7, 8, 0xAB};
    std::fwrite(bytes, 1, sizeof bytes, f);
    std::rewind(f);
    EXPECT_EQ(fget4m(f), 0x12345678u);
    EXPECT_EQ(fget8m(f), 0x0102030405060708ull);
    uint32_t expected = 0xAB; // one byte left, then three fgetc results of -1
    for (int i = 0; i < 3; ++i)
        expected = (expected << 8) + 0xFFFFFFFFu;
    EXPECT_EQ(fget4m(f), expected);
    std::fclose(f);
}

TEST(Buffers, EqualityAnswersDifferentAndStrideWideningWorksInPlace) {
    EXPECT_EQ(memBlocksEqual("abcd", "abcd", 4), 0) << "the name says equal, the answer is differ";
    EXPECT_EQ(memBlocksEqual("abcd", "abcX", 4), 1);

    // Equal widths return at once and write nothing, even into another buffer.
    const unsigned char src[6] = {1, 2, 3, 4, 5, 6};
    unsigned char dst[8];
    std::memset(dst, 9, sizeof dst);
    EXPECT_EQ(fillRowStride(0, 2, 0, 8, 3, 3, src, dst), 1);
    EXPECT_EQ(dst[0], 9);
    EXPECT_EQ(fillRowStride(0, 0, 0, 8, 3, 4, src, dst), 0);
    EXPECT_EQ(copyImageRows(0, 3, 3, 4, src, dst), 0);

    // Three 3-pixel rows of 16-bit grey widen in place to a pitch of 4 pixels.
    std::vector<uint16_t> buf(12, 0xEEEE);
    for (int i = 0; i < 9; ++i)
        buf[i] = static_cast<uint16_t>(100 + i);
    EXPECT_EQ(fillRowStride(0, 3, 0, 16, 3, 4, buf.data(), buf.data()), 3);
    const uint16_t widened[12] = {100, 101, 102, 0, 103, 104, 105, 0, 106, 107, 108, 0};
    EXPECT_EQ(0, std::memcmp(buf.data(), widened, sizeof widened));
}

TEST(Files, SaveLoadRoundTripShortFilesAndFolders) {
    const std::string dir = ::testing::TempDir() + "lv_" + std::to_string(getpid());
    ASSERT_EQ(mkdir(dir.c_str(), 0777), 0);
    const std::string path = dir + "/buffer.bin";
    EXPECT_EQ(save_buffer(path.c_str(), "0123456789", 10), 10);
    char back[20] = {};
    int got = -7;
    EXPECT_EQ(load_buffer(path.c_str(), back, 10, &got), 1);
    EXPECT_EQ(got, 10);
    EXPECT_EQ(std::string(back, 10), "0123456789");
    got = -7;
    EXPECT_EQ(load_buffer(path.c_str(), back, 20, &got), -1);
    EXPECT_EQ(got, -7) << "a short read leaves the size alone";
    EXPECT_EQ(save_buffer((dir + "/no/such/x.bin").c_str(), back, 10), -1);
    EXPECT_EQ(lv_deletef(path.c_str()), 0);
    EXPECT_NE(lv_checkfolder(path.c_str()), 0);

    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(lv_makefolder(dir.c_str(), "child"), 0);
    EXPECT_EQ(lv_checkfolder("child"), 0) << "the working directory stays in the parent";
    EXPECT_NE(lv_makefolder(dir.c_str(), "child"), 0);
    ASSERT_EQ(chdir(cwd), 0);
    rmdir((dir + "/child").c_str());
    rmdir(dir.c_str());
}

} // namespace
