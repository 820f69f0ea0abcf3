#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <cstring>
#include <random>
#include <thread>

#include "hdbbackint/stream/block_encoder.h"
#include "hdbbackint/stream/checksum.h"
#include "hdbbackint/stream/method_choice.h"
#include "hdbbackint/stream/object_destination.h"
#include "hdbbackint/stream/restore_pipeline.h"
#include "hdbbackint/stream/shared_rate.h"
#include "hdbbackint/stream/stored_decoder.h"
#include "hdbbackint/stream/stream_limits.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

namespace hdbbackint {
namespace {

std::string random_text(std::size_t size, unsigned letters) {
  std::mt19937 random(7);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random() % letters);
  return text;
}

/// Compresses as the save pipeline does, block by block.
std::string stored_form(Compression_Method method, int level, const std::string& raw) {
  std::string stored(stored_header(method));
  bool blocks = false;
  Block_Encoder encoder;
  for (std::size_t at = 0; at < raw.size(); at += block_bytes) {
    const std::size_t size = std::min(block_bytes, raw.size() - at);
    blocks = true;
    if (method == COMPR_NONE) {
      stored.append(raw, at, size);
      continue;
    }
    Buffer out;
    std::size_t out_size = 0;
    std::string error;
    EXPECT_TRUE(encoder.encode(method, level, raw.data() + at, size, out, out_size, error)) << error;
    stored.append(out.data(), out_size);
  }
  stored += stored_trailer(method, blocks);
  return stored;
}

/// Gives a text in pieces, and fails at its end when told so.
class Text_Input : public Byte_Input {
 public:
  explicit Text_Input(std::string text, bool fails = false, std::size_t piece = 65537)
      : text_(std::move(text)), fails_(fails), piece_(piece) {}
  ssize_t read(char* data, std::size_t size) override {
    if (at_ == text_.size() && fails_) {
      error_ = "the pool is gone";
      return -1;
    }
    const std::size_t count = std::min({size, text_.size() - at_, piece_});
    std::memcpy(data, text_.data() + at_, count);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  const std::string& error() const override { return error_; }

 private:
  std::string text_;
  bool fails_;
  std::size_t piece_;
  std::size_t at_ = 0;
  std::string error_;
};

class Text_Output : public Byte_Sink {
 public:
  bool write(const char* data, std::size_t size) override {
    text.append(data, size);
    return true;
  }
  const std::string& error() const override { return none_; }
  std::string text;

 private:
  std::string none_;
};

bool decode(Compression_Method method, const std::string& stored, std::string& raw, std::string& error) {
  Text_Input input(stored);
  const auto decoder = make_stored_decoder(method, input);
  std::string buffer(100'000, '\0');
  for (;;) {
    const ssize_t got = decoder->read(buffer.data(), buffer.size());
    if (got < 0) {
      error = decoder->error();
      return false;
    }
    if (got == 0) return true;
    raw.append(buffer, 0, static_cast<std::size_t>(got));
  }
}

constexpr Compression_Method methods[] = {COMPR_NONE, COMPR_LZOP, COMPR_ZSTD};

TEST(Stored_Object, Comes_Back_For_Every_Method_And_Size) {
  for (const Compression_Method method : methods) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, block_bytes - 1, block_bytes,
                                   block_bytes + 1, 3 * block_bytes + 17}) {
      for (const unsigned letters : {2U, 256U}) {
        const std::string raw = random_text(size, letters);
        std::string back;
        std::string error;
        ASSERT_TRUE(decode(method, stored_form(method, 1, raw), back, error)) << error;
        EXPECT_TRUE(back == raw) << method << " " << size;
      }
    }
  }
}

TEST(Stored_Object, Every_Level_Comes_Back_In_Bounded_Memory) {
  const std::string raw = random_text(block_bytes, 20);
  for (const Compression_Method method : {COMPR_LZOP, COMPR_ZSTD}) {
    for (const int level : {-5, 0, 1, 3, 5, 7, 9, 15, 19, 22, 99}) {
      Block_Encoder encoder;
      Buffer out;
      std::size_t size = 0;
      std::string error;
      ASSERT_TRUE(encoder.encode(method, level, raw.data(), raw.size(), out, size, error)) << error;
      EXPECT_LT(encoder.memory_bytes(), 6U << 20) << method << " " << level;
      std::string back;
      ASSERT_TRUE(decode(method, stored_form(method, level, raw), back, error)) << error;
      EXPECT_TRUE(back == raw) << method << " " << level;
    }
  }
}

TEST(Stored_Object, Zstd_Form_Is_What_The_Library_Reads_By_Itself) {
  const std::string raw = random_text(2 * block_bytes + 5, 10);
  const std::string stored = stored_form(COMPR_ZSTD, 1, raw);
  std::string back(raw.size(), '\0');
  ASSERT_EQ(ZSTD_decompress(back.data(), back.size(), stored.data(), stored.size()), raw.size());
  EXPECT_TRUE(back == raw);
}

TEST(Stored_Object, Lzop_Header_Is_That_Of_The_Tool) {
  const std::string header(stored_header(COMPR_LZOP));
  ASSERT_EQ(header.size(), 38U);
  EXPECT_EQ(header.substr(0, 9), std::string("\x89LZO\0\r\n\x1a\n", 9));
}

/// Lengths before compression of the blocks of an lzop container.
std::vector<std::size_t> lzop_block_lengths(const std::string& stored) {
  std::vector<std::size_t> lengths;
  const auto number_at = [&stored](std::size_t at) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(stored.at(at + i));
    return value;
  };
  std::size_t at = stored_header(COMPR_LZOP).size();
  for (std::size_t length = number_at(at); length != 0; length = number_at(at)) {
    lengths.push_back(length);
    at += 12 + number_at(at + 4);
  }
  EXPECT_EQ(at + 4, stored.size());
  return lengths;
}

TEST(Stored_Object, Lzop_Blocks_Are_Not_Larger_Than_The_Tool_Reads) {
  constexpr std::size_t most = 262144;
  for (const unsigned letters : {2U, 256U}) {
    for (const int level : {1, 9}) {
      EXPECT_EQ(lzop_block_lengths(stored_form(COMPR_LZOP, level, random_text(most, letters))),
                std::vector<std::size_t>{most});
      EXPECT_EQ(lzop_block_lengths(stored_form(COMPR_LZOP, level, random_text(2 * most + 5, letters))),
                (std::vector<std::size_t>{most, most, 5}));
    }
  }
  EXPECT_TRUE(lzop_block_lengths(stored_form(COMPR_LZOP, 1, "")).empty());
}

TEST(Stored_Object, Pool_That_Fails_Is_Not_Called_A_Damaged_Object) {
  const std::string raw = random_text(block_bytes + 100, 10);
  for (const Compression_Method method : methods) {
    const std::string stored = stored_form(method, 1, raw);
    for (const std::size_t cut :
         {std::size_t{0}, std::size_t{20}, std::size_t{40}, std::size_t{45}, stored.size() / 2}) {
      Text_Input input(stored.substr(0, cut), true);
      const auto decoder = make_stored_decoder(method, input);
      std::string buffer(100'000, '\0');
      ssize_t got = 1;
      while (got > 0) got = decoder->read(buffer.data(), buffer.size());
      EXPECT_EQ(got, -1);
      EXPECT_EQ(decoder->error(), "the pool is gone") << method << " cut at " << cut;
    }
  }
}

TEST(Stored_Object, Damage_Is_Never_A_Shorter_Stream) {
  const std::string raw = random_text(2 * block_bytes, 10);
  for (const Compression_Method method : {COMPR_LZOP, COMPR_ZSTD}) {
    const std::string sound = stored_form(method, 1, raw);
    for (std::size_t cut = 0; cut < sound.size(); cut += 9973) {
      std::string back;
      std::string error;
      // A zstd object that is cut between two frames looks sound to the decoder: size and checksum of the record tell.
      if (decode(method, sound.substr(0, cut), back, error)) {
        EXPECT_EQ(method, COMPR_ZSTD);
        EXPECT_NE(back.size(), raw.size());
      }
    }
    for (std::size_t at = 0; at < sound.size(); at += 9973) {
      std::string damaged = sound;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
      std::string back;
      std::string error;
      EXPECT_FALSE(decode(method, damaged, back, error)) << method << " at " << at;
      EXPECT_NE(error.find("the stored object is damaged"), std::string::npos) << error;
    }
    std::string back;
    std::string error;
    EXPECT_FALSE(decode(method, sound + "more", back, error)) << method;
  }
}

/// The library itself says nothing of such a frame when it is given in pieces.
TEST(Stored_Object, A_Zstd_Frame_That_Holds_Less_Than_It_Says_Is_Damaged) {
  // 197 bytes with a checksum are announced; one empty block and the checksum of nothing follow.
  const std::string frame("\x28\xb5\x2f\xfd\x24\xc5\x01\x00\x00\x99\xe9\xd8\x51", 13);
  const std::string before = stored_form(COMPR_ZSTD, 1, random_text(1000, 9));
  for (const std::string& stored : {frame, before + frame, frame + before}) {
    for (const std::size_t piece : {std::size_t{1}, stored.size() - 1, stored.size()}) {
      Text_Input input(stored, false, piece);
      const auto decoder = make_stored_decoder(COMPR_ZSTD, input);
      std::string buffer(64, '\0');
      ssize_t got = 1;
      while (got > 0) got = decoder->read(buffer.data(), buffer.size());
      EXPECT_EQ(got, -1) << stored.size() << " bytes, " << piece << " at a time";
      EXPECT_TRUE(decoder->error().starts_with("the stored object is damaged: ")) << decoder->error();
    }
  }
}

TEST(Checksum, Is_The_Canonical_Form) {
  Checksum empty;
  EXPECT_EQ(empty.text(), "99aa06d3014798d86001c324468d497f");
  Checksum one;
  one.add("Dorsal", 6);
  one.add("3", 1);
  Checksum other;
  other.add("Dorsal3", 7);
  EXPECT_EQ(one.text(), other.text());
  EXPECT_EQ(one.text().size(), 32U);
}

TEST(Method_Choice, Measures_The_Stream) {
  const std::string noise = random_text(block_bytes, 256);
  std::string zeros(block_bytes, '\0');
  const std::string few = random_text(block_bytes, 16);
  EXPECT_EQ(choose_method({noise}, 1), COMPR_NONE);
  EXPECT_EQ(choose_method({}, 1), COMPR_NONE);
  EXPECT_EQ(choose_method({few}, 1), COMPR_ZSTD);
  EXPECT_NE(choose_method({zeros}, 1), COMPR_NONE);
}

TEST(Restore_Pipeline, Gives_A_Sound_Object) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, block_bytes, 7 * block_bytes + 3}) {
    const std::string raw = random_text(size, 256);
    Checksum checksum;
    checksum.add(raw.data(), raw.size());
    Text_Input input(raw);
    Text_Output output;
    Stop_Source stop;
    Restore_Pipeline pipeline(input, output, {raw.size(), checksum.text()}, stop);
    EXPECT_TRUE(pipeline.run()) << pipeline.error();
    EXPECT_TRUE(output.text == raw);
  }
}

TEST(Restore_Pipeline, Holds_The_Last_Block_Back_When_Something_Is_Wrong) {
  const std::string raw = random_text(3 * block_bytes + 3, 256);
  Checksum checksum;
  checksum.add(raw.data(), raw.size());
  struct Row {
    const char* name;
    std::uint64_t bytes;
    std::string checksum;
    bool input_fails;
    const char* wanted;
  };
  const Row rows[] = {
      {"other checksum", raw.size(), std::string(32, '0'), false, "its checksum is"},
      {"too long", raw.size() - 1, checksum.text(), false, "were saved"},
      {"too short", raw.size() + 1, checksum.text(), false, "were saved"},
      {"pool gone", raw.size(), checksum.text(), true, "the pool is gone"},
  };
  for (const Row& row : rows) {
    Text_Input input(raw, row.input_fails);
    Text_Output output;
    Stop_Source stop;
    Restore_Pipeline pipeline(input, output, {row.bytes, row.checksum}, stop);
    EXPECT_FALSE(pipeline.run()) << row.name;
    EXPECT_NE(pipeline.error().find(row.wanted), std::string::npos) << row.name << ": " << pipeline.error();
    EXPECT_LT(output.text.size(), raw.size()) << row.name;
  }
}

constexpr const char* job_uuid = "0f0e0d0c-0b0a-4908-8706-050403020100";

TEST(Rate, Is_Kept_Exactly_By_All_Processes_Of_A_Job) {
  const support::Temp_Root root;
  support::Virtual_Clock clock;
  Stop_Source stop;
  // Odd numbers, so that every booking is rounded.
  const std::vector<Rate_Control_Entry> whole_day = {{0, 86400, 3'333'333}};
  Shared_Rate one(job_uuid);
  Shared_Rate other(job_uuid);
  Rate_Throttle from_one(one, Shared_Rate::to_destination, whole_day, stop);
  Rate_Throttle from_other(other, Shared_Rate::to_destination, whole_day, stop);
  const auto start = clock.steady_now();
  constexpr std::uint64_t part = 524'287;
  constexpr int rounds = 300;
  for (int i = 0; i < rounds; ++i) {
    ASSERT_TRUE(from_one.take(part));
    ASSERT_TRUE(from_other.take(part));
  }
  const double seconds = std::chrono::duration<double>(clock.steady_now() - start).count();
  const double wanted = 2.0 * rounds * part / 3'333'333;
  EXPECT_NEAR(seconds, wanted, 0.6);
}

TEST(Rate, Directions_And_Jobs_Do_Not_Share) {
  const support::Temp_Root root;
  support::Virtual_Clock clock;
  Shared_Rate job(job_uuid);
  Shared_Rate other_job("00000000-0000-4000-8000-000000000000");
  EXPECT_EQ(job.book(Shared_Rate::from_source, 1'000'000, 1000).count() > 0, false);
  EXPECT_GT(job.book(Shared_Rate::from_source, 1, 1000), std::chrono::seconds(900));
  EXPECT_EQ(job.book(Shared_Rate::to_destination, 1, 1000).count(), 0);
  EXPECT_EQ(other_job.book(Shared_Rate::from_source, 1, 1000).count(), 0);
}

TEST(Rate, Follows_The_Windows_Of_The_Local_Day) {
  ::setenv("TZ", "Asia/Tokyo", 1);
  ::tzset();
  const support::Temp_Root root;
  // 2023-11-15 07:13:20 in Tokyo.
  support::Virtual_Clock clock(1'700'000'000);
  Stop_Source stop;
  const std::vector<Rate_Control_Entry> for_a_minute = {{7 * 3600, 7 * 3600 + 14 * 60 + 20, 1000}};
  Shared_Rate rate(job_uuid);
  Rate_Throttle throttle(rate, Shared_Rate::to_destination, for_a_minute, stop);
  const auto start = clock.steady_now();
  ASSERT_TRUE(throttle.take(100'000'000));
  const double seconds = std::chrono::duration<double>(clock.steady_now() - start).count();
  // A minute at 1000 bytes a second, the rest without limit.
  EXPECT_NEAR(seconds, 60, 2);
  ::unsetenv("TZ");
  ::tzset();
}

TEST(Rate, Stop_Ends_The_Waiting) {
  const support::Temp_Root root;
  Stop_Source stop;
  const std::vector<Rate_Control_Entry> slow = {{0, 86400, 1}};
  Shared_Rate rate(job_uuid);
  Rate_Throttle throttle(rate, Shared_Rate::to_destination, slow, stop);
  std::thread stopper([&] { stop.request(); });
  EXPECT_FALSE(throttle.take(1'000'000));
  stopper.join();
}

TEST(Rate, Holds_For_This_Process_When_There_Is_No_File) {
  support::Log_Capture log;
  const support::Temp_Root root;
  root.write("/var/opt/tarvex/dorsal3/agent/rate", "a file where the directory should be");
  support::Virtual_Clock clock;
  Shared_Rate rate(job_uuid);
  EXPECT_TRUE(log.has_containing("Rate limits hold for this process alone"));
  (void)rate.book(Shared_Rate::to_destination, 1'000'000, 1'000'000);
  EXPECT_GT(rate.book(Shared_Rate::to_destination, 1, 1'000'000), std::chrono::milliseconds(800));
}

TEST(Object_Destination_Test, Wants_A_Pipe_As_Large_As_A_Backup_Does) {
  int own[2] = {-1, -1};
  ASSERT_EQ(::pipe2(own, O_CLOEXEC), 0);
  const platform::Unique_Descriptor own_reader(own[0]);
  const platform::Unique_Descriptor own_writer(own[1]);
  // The system may refuse this user a larger one; then it refuses both.
  (void)::fcntl(own_writer.get(), F_SETPIPE_SZ, wanted_pipe_bytes);
  const int granted = ::fcntl(own_writer.get(), F_GETPIPE_SZ);
  const support::Temp_Root root;
  ASSERT_EQ(::mkfifo(root.real("/pipe").c_str(), 0600), 0);
  const platform::Unique_Descriptor reader(::open(root.real("/pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(reader.valid());
  Stop_Source stop;
  std::string error;
  const auto opened = Object_Destination::open(Object_Source::Kind::pipe, "/pipe", stop, error);
  ASSERT_NE(opened, nullptr) << error;
  EXPECT_EQ(::fcntl(reader.get(), F_GETPIPE_SZ), granted);
}

}  // namespace
}  // namespace hdbbackint
