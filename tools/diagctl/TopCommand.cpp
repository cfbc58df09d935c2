// diagctl top: the view on a terminal, fed by the service or by a file.
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <android-base/file.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <statsd/StatsdStatus.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "Watch.h"
#include "top/Terminal.h"
#include "top/View.h"

namespace diagctl {
namespace {

using android::base::Error;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr int kSignalExit = 128;  // what a shell adds to the number of a signal

// What the view shows, from the service or a file.
// Everything is called from the one thread that draws.
class Feed {
 public:
  virtual ~Feed() = default;
  virtual const timeline::Timeline& timeline() const = 0;
  virtual const top::Surroundings& surroundings() const = 0;
  // Looks again, or goes on with a look that has not ended. Returns false if it still has not. Does not
  // block.
  virtual bool look() { return true; }
  // True while a look has not ended.
  virtual bool isStuck() const { return false; }
};

// A file does not change: the view alone moves through it.
class FileFeed : public Feed {
 public:
  FileFeed(timeline::Timeline timeline, const std::string& path) : mTimeline(std::move(timeline)) {
    mSurroundings.source = android::base::Basename(path);
  }
  const timeline::Timeline& timeline() const override { return mTimeline; }
  const top::Surroundings& surroundings() const override { return mSurroundings; }

 private:
  timeline::Timeline mTimeline;
  top::Surroundings mSurroundings;
};

// The counters come over another socket than the answers. The short wait keeps the view alive if only that
// one is stuck; the foot is empty then.
std::string countsLine() {
  constexpr milliseconds kPatience(100);
  const auto status = libstatsd::readStatsdStatus(kPatience);
  if (!status.ok()) return "";
  const libstatsd::StatsdCounters& counters = status->counters;
  std::string drops;
  libstatsd::forEachCounter(counters, [&](const char* name, uint64_t count) {
    const std::string_view text(name);
    const bool isDrop = text.starts_with("dropped_") || text == "lost_by_senders";
    if (isDrop && count > 0) drops += fmt::format("  {} {}", name, count);
  });
  return fmt::format("atoms: {} received, {}", counters.received,
                     drops.empty() ? "none dropped" : "dropped:" + drops);
}

// Asks the service on another thread, so that keys work while it is slow, stopped or away.
class LiveFeed : public Feed {
 public:
  explicit LiveFeed(double timeoutSeconds) : mTimeoutSeconds(timeoutSeconds) {
    mSurroundings.source = "live";
  }
  const timeline::Timeline& timeline() const override { return mBuilder.timeline(); }
  const top::Surroundings& surroundings() const override { return mSurroundings; }
  bool isStuck() const override { return mAsker.isStuck(); }

  bool look() override {
    if (!mAsker.isStuck()) mAskedAt = SteadyClock::now();
    const auto answer = mAsker.ask(true, milliseconds(0));
    if (!answer) {
      const std::chrono::duration<double> waited = SteadyClock::now() - mAskedAt;
      if (waited.count() > mTimeoutSeconds) miss(unansweredText(mTimeoutSeconds));
      return false;
    }
    answer->ok() ? add(**answer) : miss(answer->error().message());
    return true;
  }

 private:
  // The last picture stays on the screen with the reason below it. Before the first answer there is nothing
  // that a gap could follow.
  void miss(const std::string& reason) {
    if (mSeenMs) mBuilder.addGap(*mSeenMs, reason);
    mSurroundings.notice = reason;
  }

  // Twice the kept time before anything is dropped: dropping copies what is left, so it should be rare. Ten
  // minutes are five times what the charts show.
  void add(const timeline::Answer& answer) {
    constexpr int64_t kKeptMs = 600'000;
    const int64_t nowMs = answer.clocks.bootMs;
    mBuilder.add(answer);
    std::set<int32_t> dead = deadOf(answer.processes);
    for (const int32_t pid : dead) {
      if (!mDead.contains(pid)) mBuilder.addDeath({nowMs, pid, std::nullopt, ""});
    }
    // The service forgets a dead process after a minute, so the set stays small.
    mDead = std::move(dead);
    for (const auto& [pid, name] : mNames.newOf(answer.processes)) mBuilder.setName(pid, name);
    if (nowMs - timeline().beginMs > 2 * kKeptMs) mBuilder.dropBefore(nowMs - kKeptMs);
    mSeenMs = nowMs;
    mSurroundings.notice.clear();
    mSurroundings.counts = countsLine();
  }

  const double mTimeoutSeconds;
  timeline::Builder mBuilder;
  top::Surroundings mSurroundings;
  Asker mAsker;
  SteadyClock::time_point mAskedAt;
  std::optional<int64_t> mSeenMs;
  std::set<int32_t> mDead;
  Names mNames;
};

// Waits for a key, a signal that ends the view, or `until`. Returns the signal; SIGHUP if the terminal is
// gone.
std::optional<int> wait(const EndSignals& signals, SteadyClock::time_point until) {
  const auto left = std::chrono::ceil<milliseconds>(until - SteadyClock::now());
  pollfd wait[] = {{.fd = signals.fd(), .events = POLLIN, .revents = 0},
                   {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0}};
  // Another size of the window interrupts the call too.
  if (poll(wait, 2, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0) return std::nullopt;
  signalfd_siginfo info{};
  if (wait[0].revents != 0 && read(signals.fd(), &info, sizeof(info)) == sizeof(info)) {
    return static_cast<int>(info.ssi_signo);
  }
  if ((wait[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return SIGHUP;
  return std::nullopt;
}

// Draws after each key and each look until the view ends; an unfinished look is checked every 50 ms. Returns
// the exit code.
int show(top::Terminal& terminal, top::View& view, Feed& feed, const EndSignals& signals) {
  constexpr milliseconds kLookAgain(50);
  auto nextLook = SteadyClock::now();
  while (true) {
    if (SteadyClock::now() >= nextLook) {
      view.tick(feed.timeline());
      nextLook = SteadyClock::now() + (feed.look() ? milliseconds(view.periodMs()) : kLookAgain);
    }
    terminal.draw(view.render(feed.timeline(), feed.surroundings(), terminal.size()));
    if (const auto signal = wait(signals, nextLook)) return kSignalExit + *signal;
    while (const auto input = terminal.read()) {
      if (!view.handle(*input, feed.timeline())) return kDone;
      // A shorter period holds at once.
      nextLook = std::min(nextLook, SteadyClock::now() + milliseconds(view.periodMs()));
    }
  }
}

// A live feed is never an error: a service that is away may come.
Result<std::unique_ptr<Feed>> openFeed(const std::string& from, const Options& options) {
  if (from.empty()) return std::make_unique<LiveFeed>(options.timeoutSeconds);
  auto timeline = timelineFrom(from);
  if (!timeline.ok()) return Error() << timeline.error();
  return std::make_unique<FileFeed>(*std::move(timeline), from);
}

// The signals are blocked first, so that every thread inherits it. The file is read before the terminal is
// taken, because an error belongs on the ordinary screen.
int runTop(const std::string& from, const Options& options) {
  const EndSignals signals;
  const auto feed = openFeed(from, options);
  if (!feed.ok()) return refuse(feed.error().message());
  auto terminal = top::Terminal::open();
  if (!terminal.ok()) return refuse(terminal.error().message() + ".");
  top::View view(from.empty(), glyphs());
  // From here on the terminal is the view's: nothing may be printed until reset() has given it back.
  const int exitCode = show(**terminal, view, **feed, signals);
  terminal->reset();
  if ((*feed)->isStuck()) _exit(exitCode);
  return exitCode;
}

}  // namespace

// No option for the period: + and - change it while one looks.
void addTopCommand(CLI::App& app, const Options& options, int& exitCode) {
  const auto from = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("top", "Watch processes and histories on the terminal");
  command->add_option("--from", *from, "A recording or a crash report to walk through; without it, live");
  command->callback([from, &options, &exitCode] { exitCode = runTop(*from, options); });
}

}  // namespace diagctl
