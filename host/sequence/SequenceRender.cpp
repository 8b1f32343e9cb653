#include "host/sequence/SequenceRender.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "base/Exception.h"
#include "base/Failure.h"
#include "compute/StageStatistics.h"
#include "host/files/AtomicFile.h"
#include "host/sequence/FrameCheck.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

/// More frames than these in flight gain nothing.
constexpr int mostAhead = 4;
/// Planes of a picture's size that a render takes beside its file: a 1080p one of 133 MB took 730 MB in all.
constexpr std::size_t workingPlanes = 70;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// How many frames may wait before and behind the render.
struct InFlight {
    int ahead = 0;
    int behind = 0;

    InFlight(const MultiViewFile& picture, int reach, std::size_t memory) {
        const std::size_t one = std::max<std::size_t>(picture.bytes(), 1);
        const std::size_t needed = memoryForOneFrame(picture, reach);
        const auto spare = memory > needed ? static_cast<int>(std::min<std::size_t>((memory - needed) / one, 100)) : 0;
        behind = std::min(mostAhead, (spare + 1) / 2);
        ahead = std::min(mostAhead, spare - behind);
    }
};

}  // namespace

const char* FrameResult::word() const {
    static constexpr std::array<const char*, statuses> words{"written", "unmatched", "skipped", "failed"};
    return words[static_cast<std::size_t>(status)];
}

/// Writes pictures in the order in which they come, on a thread of its own.
class SequenceRender::Writer {
public:
    Writer(int waiting, std::string view, const std::function<void(const FrameResult&)>& report)
        : most_(static_cast<std::size_t>(std::max(1, waiting))), view_(std::move(view)), report_(report) {
        try {
            thread_ = std::thread([this] { writeUntilEnd(); });
        } catch (const std::system_error&) {
            // The system gives no more threads: add() writes.
        }
    }
    /// Writes what is left.
    ~Writer() { waitForEnd(); }
    /// The same, and throws what couldn't be told.
    void finish() {
        waitForEnd();
        if (failure_) std::rethrow_exception(failure_);
    }

    /// Waits while too many pictures do.
    void add(FrameResult result, std::shared_ptr<const MultiViewFile> picture) {
        if (!thread_.joinable()) {
            Entry entry(std::move(result), std::move(picture));
            write(entry);
            return;
        }
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return queue_.size() < most_; });
        queue_.emplace_back(std::move(result), std::move(picture));
        changed_.notify_all();
    }
    void tell(const FrameResult& result) {
        const std::lock_guard holding(telling_);
        if (report_) report_(result);
    }

private:
    using Entry = std::pair<FrameResult, std::shared_ptr<const MultiViewFile>>;

    void waitForEnd() {
        if (!thread_.joinable()) return;
        {
            const std::lock_guard holding(mutex_);
            ending_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    void writeUntilEnd() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return ending_ || !queue_.empty(); });
            if (queue_.empty()) return;
            Entry& entry = queue_.front();  // stays in the queue while it is written, so that it counts
            lock.unlock();
            try {
                write(entry);
            } catch (...) {
                if (!failure_) failure_ = std::current_exception();
            }
            lock.lock();
            queue_.pop_front();
            changed_.notify_all();
        }
    }
    void write(Entry& entry) {
        auto& [result, picture] = entry;
        try {
            const Vellum::Compute::Stage stage("write");
            view_.empty() ? picture->save(result.file) : picture->saveView(view_, result.file);
        } catch (...) {
            result.status = FrameResult::Status::failed;
            result.message = Cobalt::Base::currentFailure();
        }
        picture.reset();
        tell(result);
    }

    std::size_t most_;
    std::string view_;
    const std::function<void(const FrameResult&)>& report_;
    std::mutex mutex_, telling_;
    std::condition_variable changed_;
    std::deque<Entry> queue_;
    bool ending_ = false;
    std::exception_ptr failure_;  ///< of the thread's; read when that has ended
    std::thread thread_;
};

std::size_t memoryForOneFrame(const MultiViewFile& picture, int reach) {
    const std::size_t plane =
        static_cast<std::size_t>(picture.width()) * static_cast<std::size_t>(picture.height()) * sizeof(float);
    return static_cast<std::size_t>(2 * reach + 1) * picture.allBytes() + workingPlanes * plane;
}

void checkOutput(const SequenceSource& source, const FramePattern& output, const std::vector<int>& frames) {
    for (const int frame : frames) {
        std::error_code ignored;
        const fs::path target = output.path(frame);
        for (const fs::path& input : source.paths(frame))
            if (fs::equivalent(target, input, ignored) ||
                fs::weakly_canonical(target, ignored) == fs::weakly_canonical(input, ignored))
                throw FileError(fmt::format("Cannot write '{}': it is the picture that is read; give another name.",
                                            target.string()));
    }
    checkWritable(output.path(frames.front()));
}

void SequenceRender::run() {
    if (settings_.frames.empty()) return;
    checkOutput(source_, output_, settings_.frames);
    removeAbandonedFiles(output_.path(settings_.frames.front()).parent_path());
    source_.plan(settings_.frames, settings_.neighbours, 0);
    int waiting = 1;
    try {
        if (const auto first = source_.frame(settings_.frames.front())) {
            const InFlight inFlight(*first, settings_.neighbours.reach, settings_.memory);
            waiting = inFlight.behind;
            source_.plan(settings_.frames, settings_.neighbours, inFlight.ahead);
        }
    } catch (...) {
        // The frame says so itself when its turn comes.
    }
    Writer writer(waiting, settings_.savedView, report);
    for (std::size_t place = 0; place < settings_.frames.size(); ++place) {
        source_.enter(place);
        renderFrame(place, writer);
    }
    writer.finish();
}

bool SequenceRender::skips(int frame) const {
    if (settings_.skip == SkipFrames::none) return false;
    using State = FrameCheck::State;
    const State state = checkFrame(frame, output_.path(frame), job_.record()).state;
    return settings_.skip == SkipFrames::verified ? state == State::fine
                                                  : state != State::missing && state != State::damaged;
}

void SequenceRender::renderFrame(std::size_t place, Writer& writer) {
    const int frame = settings_.frames[place];
    FrameResult result;
    result.frame = frame;
    result.file = output_.path(frame);
    if (skips(frame)) {
        result.status = FrameResult::Status::skipped;
        writer.tell(result);
        return;
    }
    const auto start = Clock::now();
    try {
        source_.require(frame);
        if (begin) begin(frame, place);
        const RenderedFrame rendered = job_.render(frame);
        if (!rendered.matched) result.status = FrameResult::Status::unmatched;
        result.seconds = secondsSince(start);
        writer.add(std::move(result), rendered.picture);
        return;
    } catch (const RenderInterrupted&) {
        throw;
    } catch (const Cobalt::Base::InterruptedException&) {
        throw RenderInterrupted();
    } catch (...) {
        result.message = Cobalt::Base::currentFailure();
    }
    result.seconds = secondsSince(start);
    result.status = FrameResult::Status::failed;
    writer.tell(result);
}

}  // namespace ViewTint::Host
