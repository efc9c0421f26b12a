// ParseStructure: a structure read from the data folders.

#include "kavor/host/host.h"
#include "kavor/io/data_files.h"
#include "kavor/io/whole_file.h"
#include "kavor/structure/name_rules.h"
#include "kavor/structure/structure_parser.h"

namespace kavor {
namespace {

std::optional<std::string> ReadBaseFile(std::string_view base_name) {
  KRX::CString path;
  if (!FindDataFile(DataFileKind::kStructureBase, ToWide(base_name), kFirstDataRoot, &path)) {
    return std::nullopt;
  }
  // A base file that cannot be read gives an empty text, which the parser reports.
  return std::string(ReadWholeFile(path, nullptr, kMaxSmallTextFileBytes).Text());
}

}  // namespace

std::unique_ptr<ModelStructure> ParseStructure(const KRX::CString& name) {
  return ParseStructure(name, PreferredStructureReadOptions());
}

std::unique_ptr<ModelStructure> ParseStructure(const KRX::CString& name,
                                               const StructureReadOptions& options) {
  const std::string narrow_name = ToNarrow(name);
  // A name with a folder in it is never looked for: it is not found.
  KRX::CString path;
  const bool found = IsPlainDataFileName(narrow_name) &&
                     (FindDataFile(DataFileKind::kStructure, name, kFirstDataRoot, &path) ||
                      FindDataFile(DataFileKind::kMocapStructure, name, kFirstDataRoot, &path));
  if (!found) {
    LogWarning(ToWide("cannot find structure file: " + narrow_name));
    return nullptr;
  }
  const FileBuffer buffer = ReadWholeFile(path, nullptr, kMaxSmallTextFileBytes);
  StructureParseResult result =
      ParseStructureText(buffer.Text(), narrow_name, ReadBaseFile, options);
  if (!result.structure) LogWarning(ToWide(result.message));
  return std::move(result.structure);
}

}  // namespace kavor
