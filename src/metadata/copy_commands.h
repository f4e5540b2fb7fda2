// Command lines for an external metadata tool: the tag tables and the composition that the
// exported entry points build and drop. Tests call the composition directly.
#pragma once

#include <lumivantor/export.h>

#include <span>
#include <string>

namespace lv {

// Tag names a finished file keeps from its source photograph, one table per group.
std::span<const std::string> imageTags2Preserve();
std::span<const std::string> gpsTags2Preserve();
std::span<const std::string> photoTags2Preserve();

// The text exiv2WrapperCopyMetadata composes; null paths read as empty.
std::string compose_copy_metadata(const char *source, const char *destination, const char *tool,
                                  const char *thumbnail, const char *software, int withThumbnail,
                                  int withColorTemperature);
// The text readThumbnailIntoFile composes.
std::string compose_read_thumbnail(const char *source, const char *destination, const char *tool);
// The text old_exiv2WrapperCopyMetadata composes: a listing of source's tags into fourth.
std::string compose_list_tags(const char *source, const char *tool, const char *fourth);

} // namespace lv

extern "C" {
// True when tag equals one of the first count names of table.
LV_API bool shouldCopyTag(std::string tag, std::string *table, int count);
}
