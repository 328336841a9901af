#include "resize/resize_case.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "core/rounding.h"

namespace kvl::test {
namespace {

int32_t even(double value) {
  return static_cast<int32_t>(std::nearbyint(value));
}

RECT clipped(const ResizeCase& c) {
  const auto limit = [](int32_t v, int32_t size) { return std::clamp<int32_t>(v, 0, size); };
  return {limit(c.into.left, c.destination.width()), limit(c.into.top, c.destination.height()),
          limit(c.into.right, c.destination.width()), limit(c.into.bottom, c.destination.height())};
}

// Where the left edge of a sample falls among the outputs of a shrinking axis.
double edgeOf(const AxisModel& a, int32_t sample) {
  const int32_t first = a.firstSample(), end = a.endSample();
  const double ratio = a.outputs / (a.end - a.start);
  const auto at = [&](double s) { return (s - a.start) * ratio; };
  const auto coverage = [](double missing) { return std::floor((1 - missing) * 256 + 0.5) / 256; };
  if (sample == first) return a.firstOutput();
  if (sample == end) return a.endOutput();
  std::vector<double> rim;
  if (sample == first + 1 && a.start > first) rim.push_back(coverage(a.start - first) * ratio);
  if (sample == first + 1 && a.start <= first) rim.push_back(at(sample));
  if (sample == end - 1 && a.end < end) rim.push_back(a.outputs - coverage(end - a.end) * ratio);
  if (sample == end - 1 && a.end >= end) rim.push_back(at(sample));
  double x = at(sample);
  if (rim.size() == 1) x = rim[0];
  if (rim.size() == 2) x = (rim[0] + rim[1]) / 2;

  const double low = a.start < 0 ? std::max<double>(a.firstOutput(), at(0)) : a.firstOutput();
  const double high =
      a.end > a.samples ? std::min<double>(a.endOutput(), at(a.samples)) : a.endOutput();
  const double f = a.firstOutput(), l = a.endOutput();
  if (l - f == 1) {
    x = f + (x - low) / (high - low);
  } else if (x < f + 1) {
    x = f + (x - low) / (f + 1 - low);
  } else if (x > l - 1) {
    x = l - 1 + (x - (l - 1)) / (high - (l - 1));
  }
  return std::clamp(x, f, l);
}

}  // namespace

ResizeCase::ResizeCase(int32_t fromWidth, int32_t fromHeight, int32_t toWidth, int32_t toHeight,
                       uint16_t bitCount, GuardAt guard)
    : source(fromWidth, fromHeight, bitCount, guard),
      destination(toWidth, toHeight, bitCount, guard),
      rect{0, 0, static_cast<double>(fromWidth), static_cast<double>(fromHeight)},
      into{0, 0, toWidth, toHeight} {}

int32_t ResizeCase::setUp(ResizeSetup& setup, uint64_t& needed) {
  RECT clip = into;
  return KVL_SetupResizeDib(&source.header, &rect.left, &destination.header, &clip, flags, &setup,
                            &needed);
}

void ResizeCase::run() {
  ResizeSetup setup;
  uint64_t needed = 0;
  ASSERT_EQ(setUp(setup, needed), KVL_S_OK);
  GuardedMemory buffer(needed, needed % 2 != 0 ? GuardAt::start : GuardAt::end);
  std::fill_n(buffer.data(), needed, uint8_t{0xA7});
  ASSERT_EQ(KVL_CalcResizeDib(&setup, source.bits(), destination.bits(), buffer.data(), needed),
            KVL_S_OK);
  work.assign(buffer.data(), buffer.data() + needed);
}

int ResizeCase::at(int32_t x, int32_t y, int32_t component) const {
  return destination.row(y)[x * components() + component];
}

int ResizeCase::sourceAt(int32_t x, int32_t y, int32_t component) const {
  return source.row(y)[x * components() + component];
}

int32_t AxisModel::firstOutput() const {
  return start < 0 ? RoundToInt(-start / scale(), 0.0) : 0;
}

int32_t AxisModel::endOutput() const {
  return end > samples ? outputs - RoundToInt((end - samples) / scale(), 0.0) : outputs;
}

int32_t AxisModel::firstSample() const {
  return std::max(RoundToInt(start, 0.0), 0);
}

int32_t AxisModel::endSample() const {
  return std::min(RoundToInt(end, 1.0), samples);
}

Shares AxisModel::libraryShares(int32_t output) const {
  if (scale() <= 1) {
    const int32_t reach = border ? 1 : 0;
    const double low = std::max(firstSample() - reach, 0);
    const double high = std::min(endSample() - 1 + reach, samples - 1);
    const double centre = std::clamp(start + (output + 0.5) * scale() - 0.5, low, high);
    const double steps = std::nearbyint(centre * 65536);
    const double whole = std::floor(steps / 65536);
    const int32_t share = even((steps - whole * 65536) / 4);
    return {{static_cast<int32_t>(whole), 16384.0 - share},
            {static_cast<int32_t>(whole) + 1, static_cast<double>(share)}};
  }
  Shares shares;
  const auto remaining = [&](int32_t sample) {
    const double fixed = std::floor(edgeOf(*this, sample) * 4194304 + 0.5);
    return even(std::clamp((output + 1.0) * 4194304 - fixed, 0.0, 4194304.0) / 256);
  };
  for (int32_t i = firstSample(); i < endSample(); ++i) {
    const int32_t share = remaining(i) - remaining(i + 1);
    if (share != 0) shares.push_back({i, static_cast<double>(share)});
  }
  return shares;
}

Shares AxisModel::exactShares(int32_t output) const {
  if (scale() <= 1) {
    const double centre = std::clamp(start + (output + 0.5) * scale() - 0.5,
                                     static_cast<double>(firstSample()), endSample() - 1.0);
    const double whole = std::floor(centre);
    return {{static_cast<int32_t>(whole), 1 - (centre - whole)},
            {static_cast<int32_t>(whole) + 1, centre - whole}};
  }
  const double from = std::max(start + output * scale(), 0.0);
  const double to = std::min(start + (output + 1) * scale(), static_cast<double>(samples));
  Shares shares;
  for (auto i = static_cast<int32_t>(from); i < to; ++i) {
    const double part = std::min(to, i + 1.0) - std::max(from, static_cast<double>(i));
    if (part > 0) shares.push_back({i, part / (to - from)});
  }
  return shares;
}

AxisModel horizontalModel(const ResizeCase& c, const RECT& clip) {
  return {c.rect.left, c.rect.right, clip.right - clip.left, c.source.width(), (c.flags & 1) != 0};
}

AxisModel verticalModel(const ResizeCase& c, const RECT& clip) {
  return {c.source.height() - c.rect.bottom, c.source.height() - c.rect.top, clip.bottom - clip.top,
          c.source.height(), (c.flags & 1) != 0};
}

std::vector<uint8_t> modelBytes(const ResizeCase& c, const std::vector<uint8_t>& before) {
  const RECT clip = clipped(c);
  const AxisModel across = horizontalModel(c, clip), up = verticalModel(c, clip);
  std::vector<uint8_t> bytes = before;
  const int32_t bottom = c.destination.height() - clip.bottom;
  const auto sampleOf = [&](int32_t x, int32_t y, int32_t component) -> int {
    const bool inside = x >= 0 && x < c.source.width() && y >= 0 && y < c.source.height();
    return inside ? c.sourceAt(x, y, component) : 0;
  };
  std::vector<Shares> columns;
  for (int32_t x = across.firstOutput(); x < across.endOutput(); ++x) {
    columns.push_back(across.libraryShares(x));
  }
  for (int32_t y = up.firstOutput(); y < up.endOutput(); ++y) {
    const Shares rows = up.libraryShares(y);
    // The first pass, of every column of the source, rounded.
    std::vector<int> line;
    for (int32_t x = 0; x < c.source.width(); ++x) {
      for (int32_t k = 0; k < c.components(); ++k) {
        double sum = 8192;
        for (const Share& s : rows) sum += s.share * sampleOf(x, s.sample, k);
        line.push_back(static_cast<int>(sum / 16384));
      }
    }
    line.resize(line.size() + 3);
    for (size_t x = 0; x < columns.size(); ++x) {
      for (int32_t k = 0; k < c.components(); ++k) {
        double sum = 8191;
        for (const Share& s : columns[x]) {
          sum += s.share * line[static_cast<size_t>(s.sample * c.components() + k)];
        }
        const size_t column = static_cast<size_t>(clip.left + across.firstOutput()) + x;
        bytes[static_cast<size_t>(bottom + y) * c.destination.stride() +
              column * static_cast<size_t>(c.components()) + static_cast<size_t>(k)] =
            static_cast<uint8_t>(sum / 16384);
      }
    }
  }
  return bytes;
}

std::vector<Sample> exactSamples(const ResizeCase& c) {
  const RECT clip = clipped(c);
  const AxisModel across = horizontalModel(c, clip), up = verticalModel(c, clip);
  const int32_t bottom = c.destination.height() - clip.bottom;
  std::vector<Shares> columns;
  for (int32_t x = across.firstOutput(); x < across.endOutput(); ++x) {
    columns.push_back(across.exactShares(x));
  }
  std::vector<Sample> samples;
  for (int32_t y = up.firstOutput(); y < up.endOutput(); ++y) {
    const Shares rows = up.exactShares(y);
    for (size_t x = 0; x < columns.size(); ++x) {
      for (int32_t k = 0; k < c.components(); ++k) {
        double sum = 0;
        for (const Share& v : rows) {
          for (const Share& h : columns[x]) {
            if (v.share * h.share != 0) {
              sum += v.share * h.share * c.sourceAt(h.sample, v.sample, k);
            }
          }
        }
        const int32_t column = clip.left + across.firstOutput() + static_cast<int32_t>(x);
        samples.push_back({sum, c.at(column, bottom + y, k)});
      }
    }
  }
  return samples;
}

double psnr(const std::vector<Sample>& samples) {
  double squares = 0;
  for (const Sample& s : samples) squares += (s.exact - s.result) * (s.exact - s.result);
  return 10 * std::log10(255.0 * 255.0 * static_cast<double>(samples.size()) / squares);
}

}  // namespace kvl::test
