// mktrx: makes firmware images, shows and checks them.

#include "tools/trx/image.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

constexpr int kDone = 0;
constexpr int kNotDone = 1; ///< not sound, or a file that cannot be read or written
constexpr int kWrongUse = 2;

struct Options {
  std::vector<std::string> inputs;
  std::string output;
  std::string version;
  bool leave_header_out = false;
  std::string image;
};

int failed(const std::string& what, const std::string& reason) {
  std::cerr << "mktrx: " << what << ": " << reason << '\n';
  return kNotDone;
}

// What cannot be read to its end, as a folder, is not read: the stream would throw.
std::optional<std::string> read_file(const std::string& path) {
  try {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    return file.is_open() ? std::optional(content) : std::nullopt;
  } catch (const std::ios_base::failure&) {
    return std::nullopt;
  }
}

int make(const Options& options) {
  std::vector<std::string> parts;
  for (const std::string& path : options.inputs) {
    const auto part = read_file(path);
    if (!part) {
      return failed(path, "cannot be read");
    }
    parts.push_back(*part);
  }
  if (!options.version.empty()) {
    if (parts.empty()) {
      parts.emplace_back();
    }
    parts.front().insert(0, trx::version_line(options.version));
  }
  const auto image = trx::make_image(parts, options.leave_header_out);
  if (!image) {
    return failed(options.output, "an image has at most 7864320 bytes");
  }
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  file.write(image->data(), static_cast<std::streamsize>(image->size()));
  file.close();
  return file ? kDone : failed(options.output, "cannot be written");
}

int check(const Options& options) {
  const auto image = read_file(options.image);
  if (!image) {
    return failed(options.image, "cannot be read");
  }
  const auto fault = trx::find_fault(*image);
  return fault ? failed(options.image, *fault) : kDone;
}

int info(const Options& options) {
  const auto image = read_file(options.image);
  if (!image) {
    return failed(options.image, "cannot be read");
  }
  const auto facts = trx::read_image(*image);
  if (!facts) {
    return failed(options.image, "no TRX header");
  }
  std::printf("length    %u of the file's %zu bytes\n", facts->length, image->size());
  std::printf("checksum  %08x, computed %08x\n", facts->stored_crc, facts->computed_crc);
  std::printf("flags     %08x%s\n", facts->flag_version,
              (facts->flag_version & 1U) != 0 ? ", the header is left out" : "");
  std::printf("parts at  %u %u %u\n", facts->offsets[0], facts->offsets[1], facts->offsets[2]);
  std::printf("version   %s\n", facts->version.value_or("-").c_str());
  std::printf("verdict   %s\n", trx::find_fault(*image).value_or("sound").c_str());
  return kDone;
}

} // namespace

int main(int argc, char** argv) {
  CLI::App app{"Makes firmware images, shows and checks them."};
  app.require_subcommand(1);
  Options options;

  CLI::App* making = app.add_subcommand("make", "Make an image of up to three parts");
  making->add_option("PART", options.inputs, "The parts, in order")
      ->expected(0, static_cast<int>(trx::kMaxParts));
  making->add_option("-o,--output", options.output, "Where the image goes")->required();
  making->add_option("--version", options.version, "The firmware version it carries")
      ->check([](const std::string& text) {
        return text.find('\n') == std::string::npos ? "" : "a version is one line";
      });
  making->add_flag("--flag", options.leave_header_out,
                   "Set the flag that takes the header off the length");

  CLI::App* showing = app.add_subcommand("info", "Show what an image says and holds");
  CLI::App* checking = app.add_subcommand("check", "Check an image; exit status 1 when not sound");
  for (CLI::App* command : {showing, checking}) {
    command->add_option("IMAGE", options.image)->required();
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUse;
  }
  if (making->parsed()) {
    return make(options);
  }
  return checking->parsed() ? check(options) : info(options);
}
