// The composed metadata-copy and thumbnail commands, text for text.
#include <gtest/gtest.h>
#include <lumivantor/metadata.h>

#include <string>

#include "metadata/copy_commands.h"

namespace {

const char *const kBase =
    "/opt/tool -q -overwrite_original -tagsfromfile \"/in/photo 1.jpg\" -exif:all "
    "--exif:XResolution --exif:YResolution --exif:ExifImageWidth --exif:ExifImageHeight "
    "--exif:orientation -GPS:all -XMP:all";

TEST(CopyCommand, BothFlagsOffHasNeitherThumbnailNorTemperature) {
    const std::string cmd =
        lv::compose_copy_metadata("/in/photo 1.jpg", "/out/result.tif", "/opt/tool",
                                  "/tmp/thumb.jpg", "Lumivantor 1.0", 0, 0);
    EXPECT_EQ(cmd, std::string(kBase) + " --xmp-crs:AlreadyApplied -Software=\"Lumivantor 1.0\" "
                                        "\"/out/result.tif\"");
}

TEST(CopyCommand, BothFlagsOnClearsTemperatureAndEmbedsTheThumbnail) {
    const std::string cmd =
        lv::compose_copy_metadata("/in/photo 1.jpg", "/out/result.tif", "/opt/tool",
                                  "/tmp/thumb.jpg", "Lumivantor 1.0", 1, 7);
    EXPECT_EQ(cmd, std::string(kBase) +
                       " --XMP:WhiteBalance -XMP:ColorTemperature= --xmp-crs:AlreadyApplied "
                       "-Software=\"Lumivantor 1.0\" \"-ThumbnailImage<=/tmp/thumb.jpg\" "
                       "\"/out/result.tif\"");
}

TEST(CopyCommand, PathsAreQuotedButNotEscaped) {
    const std::string cmd = lv::compose_copy_metadata("a\"b", "", nullptr, nullptr, nullptr, 1, 0);
    EXPECT_EQ(cmd.substr(0, 48), " -q -overwrite_original -tagsfromfile \"a\"b\" -exi");
    EXPECT_NE(cmd.find("-Software=\"\" \"-ThumbnailImage<=\" \"\""), std::string::npos);
}

TEST(ThumbnailAndListing, ComposeTheirCommands) {
    EXPECT_EQ(lv::compose_read_thumbnail("/in/a.jpg", "/tmp/t.jpg", "tool"),
              "tool -b -ThumbnailImage \"/in/a.jpg\" > \"/tmp/t.jpg\"");
    EXPECT_EQ(lv::compose_list_tags("/in/a.jpg", "tool", "/tmp/tags.txt"),
              "tool -Pkyv \"/in/a.jpg\" > \"/tmp/tags.txt\"");
}

TEST(EntryPoints, NeverRunAnythingAndAlwaysAnswerMinusOne) {
    char src[] = "/in/a.jpg", dst[] = "/out/b.tif", tool[] = "tool", thumb[] = "/tmp/t.jpg",
         sw[] = "sw", fifth[] = "x";
    EXPECT_EQ(exiv2WrapperCopyMetadata(src, dst, tool, thumb, 0, sw, 1, 1), -1);
    EXPECT_EQ(wrapMetadata(src, dst, tool, thumb, 0, sw, 0, 0), -1);
    EXPECT_EQ(wrapMetadata(nullptr, nullptr, nullptr, nullptr, 0, nullptr, 1, 1), -1);
    EXPECT_EQ(old_exiv2WrapperCopyMetadata(src, dst, tool, thumb, fifth), -1);
    EXPECT_EQ(readThumbnailIntoFile(src, dst, tool), -1);
}

TEST(TagTables, HoldTheirNamesAndMatchWholeNamesOnly) {
    auto image = lv::imageTags2Preserve();
    auto gps = lv::gpsTags2Preserve();
    auto photo = lv::photoTags2Preserve();
    ASSERT_EQ(image.size(), 15u);
    ASSERT_EQ(gps.size(), 9u);
    ASSERT_EQ(photo.size(), 29u);
    EXPECT_EQ(image.front(), "Artist");
    EXPECT_EQ(gps.back(), "GPSVersionID");
    EXPECT_EQ(photo.back(), "FocalLengthIn35mmFilm");

    std::string *table = const_cast<std::string *>(photo.data());
    const int n = int(photo.size());
    EXPECT_TRUE(shouldCopyTag("Aperture", table, n));
    EXPECT_TRUE(shouldCopyTag("MaxAperture", table, n));
    EXPECT_TRUE(shouldCopyTag("FocalLengthIn35mmFilm", table, n));
    EXPECT_FALSE(shouldCopyTag("FocalLengthIn35mmFilm", table, n - 1)); // beyond count
    EXPECT_FALSE(shouldCopyTag("Aperture", table + 1, n - 1));          // only "MaxAperture" left
    EXPECT_FALSE(shouldCopyTag("ExposureTimeX", table, n));             // entry is a prefix
    EXPECT_FALSE(shouldCopyTag("Flas", table, n));                      // tag is a prefix
    EXPECT_FALSE(shouldCopyTag("Aperture", table, 0));
    EXPECT_FALSE(shouldCopyTag("Aperture", table, -3));
}

} // namespace
