// What others make of a recording: Python's json and csv read every value as it was written.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/recording/recorder.h"
#include "tests/recording/samples.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

namespace tarsil {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Prints what a tsl file or a json document holds, a record a line, texts as the hex of their bytes.
constexpr const char* kJsonReader = R"(
import json, sys
def hexed(text): return text.encode('utf-8', 'surrogateescape').hex()
def pairs(name, values): print(name, *(f'{hexed(k)}={hexed(v)}' for k, v in values.items()))
def reals(values, decimals): return ' '.join(f'{v:.{decimals}f}' for v in values)
def frame(d):
    assert list(d) == ['seq', 't', 'q', 'touch', 'imu', 'stale'], list(d)
    print('frame', d['seq'], f"{d['t']:.6f}", {False: 0, True: 1}[d['stale']])
    print('q', reals(d['q'], 6))
    print('touch', reals(d['touch'], 6))
    for sample in d['imu']:
        assert list(sample) == ['acc', 'gyro'], list(sample)
        print('acc', reals(sample['acc'], 3))
        print('gyro', reals(sample['gyro'], 3))
def marker(d):
    assert list(d) == ['t', 'name', 'data'], list(d)
    assert isinstance(d['t'], float)
    print('marker', hexed(d['name']))
    pairs('data', d['data'])
def document(d):
    assert list(d) == ['version', 'sdk', 'format', 't_created', 'metadata', 'frame_count', 'frames', 'markers']
    assert (d['version'], d['sdk'], d['format']) == (1, '0.3.0', 'json')
    assert d['frame_count'] == len(d['frames'])
    pairs('metadata', d['metadata'])
    for each in d['frames']: frame(each)
    for each in d['markers']: marker(each)
def line(d):
    kind = d.pop('type')
    if kind == 'header':
        assert list(d) == ['version', 'sdk', 'format', 'file', 't_created', 'metadata'], list(d)
        assert (d['version'], d['sdk'], d['format']) == (1, '0.3.0', 'tsl')
        pairs('metadata', d['metadata'])
    else:
        {'frame': frame, 'marker': marker}[kind](d)
path, strict = sys.argv[1], sys.argv[2] == 'strict'
sys.stdout.reconfigure(newline='\n')
with open(path, encoding='utf-8', errors='surrogateescape', newline='\n') as file:
    if path.endswith('.json'):
        document(json.load(file, strict=strict))
    else:
        for text in file: line(json.loads(text, strict=strict))
)";

/// Prints what a csv file holds: the column names, a frame a line, and the names of the markers.
constexpr const char* kCsvReader = R"(
import csv, sys
with open(sys.argv[1], encoding='utf-8', newline='') as file:
    lines = file.read().split('\n')
assert lines.pop() == ''
marks = [line for line in lines if line.startswith('# ')]
rows = csv.DictReader(line for line in lines if not line.startswith('# '))
print(*rows.fieldnames)
for row in rows:
    assert None not in row and None not in row.values()
    print(int(row['seq']), *(f'{float(v):.6f}' for k, v in row.items() if k not in ('seq', 'stale')), row['stale'])
for mark in marks:
    assert mark.startswith('# marker t=')
    float(mark.split()[2][2:])
    print(mark.split(' name=', 1)[1])
)";

std::string python(const char* program, const std::string& path, const std::string& argument = "strict") {
  const test::Finished finished = test::run({TARSIL_PYTHON, "-I", "-c", program, path, argument});
  EXPECT_EQ(finished.status, (test::ExitStatus{0, 0})) << finished.error;
  return finished.output;
}

std::string hexed(const std::string& text) {
  std::string hex;
  for (const char c : text) {
    std::array<char, 3> digits;
    std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    hex += digits.data();
  }
  return hex;
}

template <typename Reals>
std::string reals(const char* name, const Reals& values, int decimals) {
  std::string text = std::string(name) + " ";
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ' ';
    text += test::printed(static_cast<double>(values[i]), decimals);
  }
  return text + "\n";
}

std::string pairs(const char* name, const Pairs& values) {
  std::string text = name;
  for (const auto& [key, value] : values)
    text.append(" ").append(hexed(key)).append("=").append(hexed(value));
  return text + "\n";
}

std::string described(const Frame& frame) {
  std::string text = "frame " + std::to_string(frame.seq) + " " + test::printed(frame.t, 6);
  text += frame.stale ? " 1\n" : " 0\n";
  text += reals("q", frame.q, 6) + reals("touch", frame.touch, 6);
  for (const ImuSample& sample : frame.imu) {
    text += reals("acc", sample.acc, 3) + reals("gyro", sample.gyro, 3);
  }
  return text;
}

std::string described(const std::vector<Frame>& frames) {
  std::string text;
  for (const Frame& frame : frames) text += described(frame);
  return text;
}

/// Worn frames, frames of other shapes, and values at the ends of the range.
std::vector<Frame> all_kinds_of_frames() {
  std::vector<Frame> frames = test::worn_frames(200, 1);
  std::mt19937 random(2);
  for (std::uint64_t i = 0; i < 50; ++i) {
    frames.push_back(test::worn_frame(random, i, {random() % 9, random() % 9, random() % 4}));
  }
  frames.push_back(test::bare_frame(std::numeric_limits<std::uint64_t>::max(), -1e15));
  Frame extreme = test::small_frame();
  extreme.q = {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(), 1e-45F, -0.0F, 1e10F};
  extreme.imu[0].gyro = {std::numeric_limits<float>::max(), -1e-10F, -0.0F};
  frames.push_back(extreme);
  return frames;
}

const Pairs kOddPairs{{"", ""},
                      {"a\"b", "c\\d"},
                      {"brackets", "[{}]:,"},
                      {"key\tx", "line\nfeed\rreturn"},
                      {"umlaut \xC3\xA4", "dash \xE2\x80\x94 glove \xF0\x9F\xA7\xA4"}};

class Interchange : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& name) const { return directory_.file(name); }

 private:
  test::TempDirectory directory_;
};

TEST_F(Interchange, of_tsl_lines_with_a_json_parser) {
  const auto frames = all_kinds_of_frames();
  {
    Recorder recorder(file("a.tsl"), {kOddPairs.begin(), kOddPairs.end()});
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("a\"b\\c\n\xC3\xA9", {kOddPairs.begin(), kOddPairs.end()});
    recorder.add_marker("", {});
  }
  EXPECT_EQ(python(kJsonReader, file("a.tsl")), pairs("metadata", kOddPairs) + described(frames) + "marker " +
                                                    hexed("a\"b\\c\n\xC3\xA9") + "\n" +
                                                    pairs("data", kOddPairs) + "marker \n" + "data\n");
}

TEST_F(Interchange, of_a_json_document_with_a_json_parser) {
  const auto frames = all_kinds_of_frames();
  {
    Recorder recorder(file("a.json"), {kOddPairs.begin(), kOddPairs.end()});
    recorder.add_marker("one", {kOddPairs.begin(), kOddPairs.end()});
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("two", {});
  }
  EXPECT_EQ(python(kJsonReader, file("a.json")),
            pairs("metadata", kOddPairs) + described(frames) + "marker " + hexed("one") + "\n" +
                pairs("data", kOddPairs) + "marker " + hexed("two") + "\n" + "data\n");
}

TEST_F(Interchange, of_empty_documents_with_a_json_parser) {
  { const Recorder recorder(file("a.json")); }
  { const Recorder recorder(file("a.tsl")); }
  EXPECT_EQ(python(kJsonReader, file("a.json")), "metadata\n");
  EXPECT_EQ(python(kJsonReader, file("a.tsl")), "metadata\n");
}

TEST_F(Interchange, of_raw_control_characters_needs_a_lenient_parser) {
  const Pairs control{{"bell\x07", "\x01\x1F\x7F"}};
  for (const char* const name : {"a.json", "a.tsl"}) {
    { const Recorder recorder(file(name), {control.begin(), control.end()}); }
    EXPECT_EQ(python(kJsonReader, file(name), "lenient"), pairs("metadata", control)) << name;
  }
}

TEST_F(Interchange, of_bytes_that_are_no_utf8_with_a_lenient_decoder) {
  const Pairs latin{{"name", "J\xF6rg"}};
  { const Recorder recorder(file("a.tsl"), {latin.begin(), latin.end()}); }
  EXPECT_EQ(python(kJsonReader, file("a.tsl")), pairs("metadata", latin));
}

TEST_F(Interchange, of_csv_with_a_csv_reader) {
  auto frames = test::worn_frames(200, 3);
  frames[7].q[3] = std::numeric_limits<float>::max();
  {
    Recorder recorder(file("a.csv"));
    recorder.add_marker("first, with a comma");
    for (const Frame& frame : frames) recorder.write_frame(frame);
    recorder.add_marker("last");
  }
  std::string expected = "seq t stale";
  const auto append_column = [&expected](const char* name, int index, const char* axis) {
    expected += name;
    expected += std::to_string(index);
    expected += axis;
  };
  for (int i = 0; i < 20; ++i) append_column(" q_", i, "");
  for (int i = 0; i < 30; ++i) append_column(" touch_", i, "");
  for (int i = 0; i < 5; ++i) {
    for (const char* const axis : {"_ax", "_ay", "_az", "_gx", "_gy", "_gz"}) append_column(" imu_", i, axis);
  }
  expected += "\n";
  for (const Frame& frame : frames) {
    expected.append(std::to_string(frame.seq)).append(" ").append(test::printed(frame.t, 6));
    const auto append = [&expected](float value) {
      expected.append(" ").append(test::printed(static_cast<double>(value), 6));
    };
    for (const float value : frame.q) append(value);
    for (const float value : frame.touch) append(value);
    for (const ImuSample& sample : frame.imu) {
      for (const float value : sample.acc) append(value);
      for (const float value : sample.gyro) append(value);
    }
    expected += frame.stale ? " 1\n" : " 0\n";
  }
  EXPECT_EQ(python(kCsvReader, file("a.csv")), expected + "first, with a comma\nlast\n");
}

}  // namespace
}  // namespace tarsil
