#include "tools/virtual-router/service.h"

namespace virtual_router {

namespace {

constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kPause(200);
constexpr std::chrono::seconds kShortLife(5);
constexpr int kMostShortLives = 5;

} // namespace

void Service::start() {
  due_.reset();
  child_.start(command_);
  started_ = Clock::now();
}

void Service::stop() {
  due_.reset();
  child_.end(kPatience);
  show_output();
}

bool Service::watch() {
  const auto status = child_.collect();
  if (!status)
    return true;
  show_output();
  printer_.line("init", child_.speaker() + " " + describe_end(*status));
  short_lives_ = Clock::now() - started_ < kShortLife ? short_lives_ + 1 : 0;
  due_ = Clock::now() + kPause;
  return short_lives_ < kMostShortLives;
}

void Service::start_if_due() {
  if (due_ && Clock::now() >= *due_)
    start();
}

void Service::show_output() {
  for (std::string piece = child_.read_output(); !piece.empty(); piece = child_.read_output())
    printer_.text(child_.speaker(), piece);
}

} // namespace virtual_router
