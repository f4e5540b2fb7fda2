// The composed metadata-copy and thumbnail commands, text for text.
#include <gtest/gtest.h>
#include <lumivantor/metadata.h>

#include <string>

#include "metadata/copy_commands.h"

namespace {

TEST(CopyCommand, FlagsAddTheThumbnailAndClearTheTemperature) {
    const std::string base =
        "/opt/tool -q -overwrite_original -tagsfromfile \"/in/photo 1.jpg\" -exif:all "
        "--exif:XResolution --exif:YResolution --exif:ExifImageWidth --exif:ExifImageHeight "
        "--exif:orientation -GPS:all -XMP:all";
    const auto copy = [](int thumbnail, int temperature) {
        return lv::compose_copy_metadata("/in/photo 1.jpg", "/out/result.tif", "/opt/tool",
                                         "/tmp/thumb.jpg", "Lumivantor 1.0", thumbnail,
                                         temperature);
    };
    EXPECT_EQ(copy(0, 0), base + " --xmp-crs:AlreadyApplied "
                                 "-Software=\"Lumivantor 1.0\" \"/out/result.tif\"");
    EXPECT_EQ(copy(1, 7), base + " --XMP:WhiteBalance -XMP:ColorTemperature= "
                                 "--xmp-crs:AlreadyApplied -Software=\"Lumivantor 1.0\" "
                                 "\"-ThumbnailImage<=/tmp/thumb.jpg\" \"/out/result.tif\"");
    // Quotes inside a path are not escaped; missing strings are empty.
    const std::string odd = lv::compose_copy_metadata("a\"b", "", nullptr, nullptr, nullptr, 1, 0);
    EXPECT_EQ(odd.substr(0, 44), " -q -overwrite_original -tagsfromfile \"a\"b\" ");
    EXPECT_NE(odd.find("-Software=\"\" \"-ThumbnailImage<=\" \"\""), std::string::npos);

    EXPECT_EQ(lv::compose_read_thumbnail("/in/a.jpg", "/tmp/t.jpg", "tool"),
              "tool -b -ThumbnailImage \"/in/a.jpg\" > \"/tmp/t.jpg\"");
    EXPECT_EQ(lv::compose_list_tags("/in/a.jpg", "tool", "/tmp/tags.txt"),
              "tool -Pkyv \"/in/a.jpg\" > \"/tmp/tags.txt\"");
}

TEST(CopyCommand, EntryPointsRunNothingAndReturnMinusOne) {
    char src[] = "/in/a.jpg", dst[] = "/out/b.tif", tool[] = "tool", thumb[] = "/tmp/t.jpg";
    EXPECT_EQ(exiv2WrapperCopyMetadata(src, dst, tool, thumb, 0, tool, 1, 1), -1);
    EXPECT_EQ(wrapMetadata(src, dst, tool, thumb, 0, tool, 0, 0), -1);
    EXPECT_EQ(wrapMetadata(nullptr, nullptr, nullptr, nullptr, 0, nullptr, 1, 1), -1);
    EXPECT_EQ(old_exiv2WrapperCopyMetadata(src, dst, tool, thumb, src), -1);
    EXPECT_EQ(readThumbnailIntoFile(src, dst, tool), -1);
}

TEST(TagTables, MatchWholeNamesWithinTheCountOnly) {
    ASSERT_EQ(lv::imageTags2Preserve().size(), 15u);
    ASSERT_EQ(lv::gpsTags2Preserve().size(), 9u);
    auto photo = lv::photoTags2Preserve();
    ASSERT_EQ(photo.size(), 29u);
    std::string *table = const_cast<std::string *>(photo.data());
    const int n = int(photo.size());
    EXPECT_TRUE(shouldCopyTag("FocalLengthIn35mmFilm", table, n));
    EXPECT_FALSE(shouldCopyTag("FocalLengthIn35mmFilm", table, n - 1)); // beyond the count
    EXPECT_FALSE(shouldCopyTag("Aperture", table + 1, n - 1));          // only "MaxAperture" left
    EXPECT_FALSE(shouldCopyTag("ExposureTimeX", table, n));             // an entry is a prefix
    EXPECT_FALSE(shouldCopyTag("Flas", table, n));                      // the tag is a prefix
    EXPECT_FALSE(shouldCopyTag("Aperture", table, 0));
}

} // namespace
