// The motion blob as a scene file may carry it: any bytes are decoded as a blob of the
// current layout, with and without the counts a target expects, and upgraded from the old
// layout and decoded again. A decoded layout must lie inside the buffer, and every sample,
// source index and curve it announces is read; nothing may crash, hang or read past the end.
// Seeds: fuzz/corpus/motion_blob/.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kavor/operators/motion_blob.h"

namespace {

// Reads everything the layout points at and checks that the counts agree with themselves.
void ReadAll(std::span<const uint8_t> bytes) {
  const auto layout = kavor::DecodeMotionBlob(bytes, -1, -1);
  if (!layout) return;
  const int32_t frames = layout->frame_count, nodes = layout->node_count,
                planes = layout->plane_count;
  if (frames < 1 || nodes < 1 || planes < 0) __builtin_trap();
  if (layout->source_indices + 4 * size_t(nodes) + sizeof(double) > bytes.size()) {
    __builtin_trap();
  }
  // The same blob with its own counts expected decodes; with others it is refused.
  if (!kavor::DecodeMotionBlob(bytes, nodes, planes)) __builtin_trap();
  if (kavor::DecodeMotionBlob(bytes, nodes + 1, planes) ||
      kavor::DecodeMotionBlob(bytes, nodes, planes + 1)) {
    __builtin_trap();
  }
  double sum = 0.0;
  for (int32_t node = 0; node < nodes; ++node) {
    sum += kavor::ReadSourceIndex(bytes.data(), *layout, node);
    for (int32_t frame = 0; frame < frames; ++frame) {
      const kavor::NodeSample sample = kavor::ReadNodeSample(bytes.data(), *layout, node, frame);
      sum += sample.position.GetX() + sample.rotation.GetW();
    }
  }
  for (int32_t plane = 0; plane < planes; ++plane) {
    for (int32_t frame = 0; frame < frames; ++frame) {
      sum += kavor::ReadPlaneSample(bytes.data(), *layout, plane, frame).GetZ();
    }
  }
  for (const kavor::CurveKeyRecord& curve : layout->curves) {
    for (const std::vector<double>& keys : curve.channels) {
      for (double key : keys) sum += key;
    }
  }
  // Keeps the reads from being optimised away.
  volatile double sink = sum;
  (void)sink;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  (void)kavor::ReadLiveSlot(bytes);
  ReadAll(bytes);
  // Any buffer may be taken for the old layout; one that is, is upgraded on binding.
  if (const auto upgraded = kavor::UpgradeOldMotionBlob(bytes)) {
    if (upgraded->size() != size + kavor::kOldLayoutGrowth ||
        kavor::IsOldMotionBlobLayout(*upgraded)) {
      __builtin_trap();
    }
    ReadAll(*upgraded);
  } else if (size >= kavor::kOldLayoutMinimumSize) {
    __builtin_trap();
  }
  return 0;
}
