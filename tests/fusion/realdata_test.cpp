// Fusion of the real brackets in the shared data folder, judged as a photographer would:
// little clipped, shadows lifted against the middle frame, highlights held against the
// brightest, neutral surfaces left neutral. Writes the pictures under the build tree.
#include <gtest/gtest.h>

#ifdef LV_HAVE_LVHDR
#include <algorithm>
#include <csignal>
#include <glob.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bracket_decode.h"
#include "fuse_pipeline.h"

namespace {

std::vector<std::string> frames(const std::string &folder, const std::string &ext) {
    std::vector<std::string> paths;
    glob_t g;
    if (glob((folder + "/*" + ext).c_str(), 0, nullptr, &g) == 0)
        paths.assign(g.gl_pathv, g.gl_pathv + g.gl_pathc); // sorted: darkest first
    globfree(&g);
    return paths;
}

int luma(const uint8_t *px) {
    return (54 * px[0] + 183 * px[1] + 19 * px[2]) >> 8;
}

struct Verdict {
    double clipped;          // share of pixels blown or crushed in every channel
    double shadow_share;     // share of pixels in shadow (below 64) in the middle frame
    double shadow_gain;      // their mean level in the picture less that in the middle frame
    double held_highlight;   // mean level of the pixels that the brightest frame clips
    double cast_rg, cast_bg; // mean colour difference on surfaces neutral in the middle frame
};

Verdict judge(const uint8_t *middle, const uint8_t *bright, const uint8_t *out, size_t pixels) {
    double clipped = 0, sh_mid = 0, sh_out = 0, sh_n = 0, hi = 0, hi_n = 0, rg = 0, bg = 0,
           grey_n = 0;
    for (size_t i = 0; i < pixels; ++i) {
        const uint8_t *o = out + 3 * i, *m = middle + 3 * i, *b = bright + 3 * i;
        const int lm = luma(m);
        clipped += (std::min({o[0], o[1], o[2]}) >= 254) || (std::max({o[0], o[1], o[2]}) <= 1);
        if (lm < 64) sh_mid += lm, sh_out += luma(o), ++sh_n;
        if (std::min({b[0], b[1], b[2]}) >= 250) hi += luma(o), ++hi_n;
        if (std::abs(m[0] - m[1]) < 5 && std::abs(m[2] - m[1]) < 5 && lm > 60 && lm < 200)
            rg += o[0] - o[1], bg += o[2] - o[1], ++grey_n;
    }
    return {clipped / pixels,
            sh_n / pixels,
            (sh_out - sh_mid) / std::max(1.0, sh_n),
            hi_n ? hi / hi_n : 0,
            grey_n ? rg / grey_n : 0,
            grey_n ? bg / grey_n : 0};
}

void write_picture(const std::string &name, const lvhdr::Image &img) {
    const std::string dir = std::string(LV_BINARY_DIR) + "/fusion-pictures";
    mkdir(dir.c_str(), 0777);
    std::string err;
    EXPECT_TRUE(lvhdr::write_image(dir + "/" + name, img, err)) << err;
}

TEST(FusionRealBrackets, StreetAndNightLookRightWithBothMethods) {
    struct Case {
        const char *name, *folder, *ext;
    } cases[] = {{"street", "/street", ".png"}, {"night", "/night/small", ".jpg"}};
    bool any = false;
    for (const Case &c : cases) {
        const auto paths = frames(std::string(LV_DATA_DIR) + c.folder, c.ext);
        if (paths.size() != 5) continue;
        any = true;
        for (bool two_stage : {false, true}) {
            lvhdr::Bracket bracket;
            std::string failed, err;
            ASSERT_TRUE(lvhdr::decode_bracket(paths, bracket, nullptr, nullptr, failed, err));
            const size_t pixels = size_t(bracket.width) * bracket.height;
            const std::vector<uint8_t> middle(bracket.samples.begin() + 2 * 3 * pixels,
                                              bracket.samples.begin() + 3 * 3 * pixels);
            const std::vector<uint8_t> bright(bracket.samples.begin() + 4 * 3 * pixels,
                                              bracket.samples.end());
            lvhdr::FuseSettings s;
            s.two_stage = two_stage;
            lvhdr::Image out;
            ASSERT_EQ(lvhdr::fuse_bracket(bracket, s, out, err), 1) << err;
            write_picture(std::string(c.name) + (two_stage ? "-two-stage.png" : "-plain.png"), out);
            const Verdict v = judge(middle.data(), bright.data(), out.pixels.data(), pixels);
            const std::string what = std::string(c.name) + (two_stage ? " two-stage" : " plain");
            EXPECT_LT(v.clipped, 0.02) << what;
            // A middle frame with hardly any shadow (the street's is overexposed) has none to lift.
            if (v.shadow_share > 0.01) {
                EXPECT_GT(v.shadow_gain, 3.0) << what << ": shadows lifted over the middle frame";
            }
            EXPECT_LT(v.held_highlight, 240) << what << ": highlights held under the brightest";
            EXPECT_LT(std::abs(v.cast_rg), 6.0) << what;
            EXPECT_LT(std::abs(v.cast_bg), 6.0) << what;
        }
    }
    if (!any) GTEST_SKIP() << "sample brackets not found under " << LV_DATA_DIR;
}

int run(const std::string &cmd) {
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FusionTool, LowMemoryMatchesAndLeavesNoTempFolderAndCtrlCLeavesNoOutput) {
    const std::string folder = std::string(LV_DATA_DIR) + "/street";
    const auto paths = frames(folder, ".png");
    if (paths.size() != 5) GTEST_SKIP() << "street bracket not found";
    const std::string dir = std::string(LV_BINARY_DIR) + "/fusion-tool";
    run("rm -rf " + dir + " && mkdir -p " + dir + "/tmp");
    std::string inputs;
    for (const auto &p : paths)
        inputs += " " + p;
    const std::string exe = LVHDR_EXE;
    ASSERT_EQ(run(exe + " fuse -o " + dir + "/mem.png" + inputs + " >/dev/null"), 0);
    ASSERT_EQ(run("TMPDIR=" + dir + "/tmp " + exe + " fuse --low-memory -o " + dir + "/low.png" +
                  inputs + " >/dev/null"),
              0);
    EXPECT_EQ(run("cmp -s " + dir + "/mem.png " + dir + "/low.png"), 0);
    EXPECT_EQ(run("test -z \"$(ls -A " + dir + "/tmp)\""), 0) << "temp folder removed";

    // Ctrl-C while it works: a failure exit, no picture, no temp folder.
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("TMPDIR", (dir + "/tmp").c_str(), 1);
        std::vector<std::string> args = {
            exe, "fuse", "--method", "two-stage", "--low-memory", "-o", dir + "/cut.png"};
        for (int i = 0; i < 8; ++i)
            args.insert(args.end(), paths.begin(), paths.end());
        std::vector<char *> argv;
        for (auto &a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        freopen("/dev/null", "w", stdout);
        freopen("/dev/null", "w", stderr);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    usleep(300000);
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
    EXPECT_NE(access((dir + "/cut.png").c_str(), F_OK), 0);
    EXPECT_EQ(run("test -z \"$(ls -A " + dir + "/tmp)\""), 0);
}

} // namespace
#endif
