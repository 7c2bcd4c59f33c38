#include "tests/simulation/flash.h"

#include "tests/fake_platform/fake.h"
#include "tools/trx/image.h"

#include <algorithm>

using fake::world;

namespace sim {

namespace {

constexpr std::size_t kBlockBytes = 65536;
constexpr std::int64_t kBlock_ms = 700; ///< to erase and write
constexpr std::int64_t kTechnician_ms = 30 * 60 * 1000;
constexpr char kFactoryVersion[] = "1.0.0";

void sleep_ms(std::int64_t duration) {
  world().advance_to(world().now_ms + duration);
}

} // namespace

std::string firmware_image(const std::string& version, std::string body) {
  return trx::make_image({trx::version_line(version) + std::move(body)}, false).value();
}

Flash::Flash(Chronicle& chronicle)
    : chronicle_(chronicle), content_(firmware_image(kFactoryVersion, "factory")) {
  offered_.insert(content_);
}

void Flash::offer(const std::string& image) {
  if (!trx::find_fault(image)) {
    offered_.insert(image);
  }
}

int Flash::upgrade(const std::string& image) {
  if (const auto fault = trx::find_fault(image)) {
    chronicle_.tell("the flash tool refuses the image: %s", fault->c_str());
    chronicle_.count("images that the flash tool refused");
    return 1;
  }
  writing_ = true;
  const std::string whole = image.substr(0, trx::read_image(image)->length);
  for (std::size_t at = 0; at < whole.size(); at += kBlockBytes) {
    sleep_ms(kBlock_ms);
    content_.resize(std::max(content_.size(), std::min(at + kBlockBytes, whole.size())), '\xFF');
    content_.replace(at, kBlockBytes, whole, at, kBlockBytes);
  }
  content_ = whole; // the rest of the partition means nothing
  writing_ = false;
  chronicle_.tell("the flash tool wrote %zu bytes", whole.size());
  chronicle_.count("images flashed");
  check();
  return 0;
}

std::string Flash::boot() {
  if (writing_) {
    writing_ = false;
    chronicle_.count("power cuts while the flash tool wrote");
    if (trx::find_fault(content_) || !offered_.contains(content_)) {
      chronicle_.tell("the image in flash is torn: a technician comes");
      chronicle_.count("explained: an image torn by a power cut while the flash tool wrote");
      content_ = firmware_image(kFactoryVersion, "factory");
      sleep_ms(kTechnician_ms);
    }
  }
  check();
  return trx::read_image(content_)->version.value();
}

void Flash::check() const {
  if (!writing_ && !offered_.contains(content_)) {
    chronicle_.violated("the image in flash is none that was offered");
  }
}

} // namespace sim
