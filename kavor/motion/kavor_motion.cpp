// A motion read from a file, and the choice of reader.
#include <algorithm>
#include <memory>
#include <utility>

#include "kavor/motion/kavor_file.h"
#include "kavor/xml/xml_file.h"

namespace kavor {

KavorMotion MakeKavorMotion(int32_t num_nodes, int32_t num_planes, std::string type) {
  KavorMotion motion;
  motion.structure = std::make_unique<ModelStructure>();
  motion.structure->nodes.resize(static_cast<size_t>(std::max(num_nodes, 0)));
  motion.structure->planes.resize(static_cast<size_t>(std::max(num_planes, 0)));
  motion.structure->type = std::move(type);
  motion.model = std::make_unique<RetargetModel>(motion.structure.get());
  return motion;
}

std::unique_ptr<KavorMotion> ReadKavorMotionFile(const KRX::CString& path) {
  auto motion = std::make_unique<KavorMotion>();
  const bool read = IsXmlFile(path) ? ReadKavorXml(*motion, path) : ReadKavorText(*motion, path);
  if (!read) return nullptr;
  return motion;
}

}  // namespace kavor
