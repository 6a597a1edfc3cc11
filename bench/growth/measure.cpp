#include "measure.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include "../child.h"

namespace growth {

namespace {

using namespace ko::mirel_sdk;

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// A field in kB of one of the system's tables, in bytes.
double field(const std::string& path, const std::string& name) {
    std::ifstream table(path);
    std::string word;
    while (table >> word) {
        double kilobytes = 0;
        if (word == name + ":" && table >> kilobytes) return 1024 * kilobytes;
        table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error(path + " has no " + name);
}

// What was handed out, by the allocator and by the system to others. Blocks that the allocator maps
// alone are part of both sizes of the process.
double allocated() {
    const struct mallinfo2 info = mallinfo2();
    const double heap = static_cast<double>(info.arena);
    return static_cast<double>(info.uordblks) + field("/proc/self/status", "VmSize") - heap;
}

// The high-water mark of resident memory begins anew.
void forgetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

// A file without a name, at its beginning.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::string_view text) : stream_(std::tmpfile(), std::fclose) {
        if (!stream_ || std::fwrite(text.data(), 1, text.size(), stream_.get()) != text.size() ||
            std::fflush(stream_.get()) != 0) {
            throw std::runtime_error("cannot write a temporary file");
        }
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fileno(stream_.get())); }

  private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream_;
};

Reading measure(const Document& document, Source source, bench::Memory memory) {
    Reading reading;
    const ko::LogCapture capture([&reading](const ko::LogRecord& record) {
        reading.log += static_cast<double>(record.text.len() + 1);
    });
    auto scene = std::make_unique<impl::Scene>();
    scene->setElementLimit(std::numeric_limits<unsigned long>::max());
    if (document.registerTypes) document.registerTypes(*scene);
    impl::parseString(scene.get(), ko::String(std::string_view(document.setup)));
    reading.log = 0;
    const ko::String text{source.isFile ? std::string_view() : std::string_view(document.text)};
    const std::unique_ptr<TemporaryFile> file(source.isFile ? new TemporaryFile(document.text)
                                                            : nullptr);
    if (memory == bench::Memory::New) malloc_trim(0);  // what is free already does not count
    forgetPeak();
    const double resident = field("/proc/self/status", "VmRSS");
    const double allocatedBefore = allocated();
    const double start = cpuSeconds();
    const bool isRead =
        file ? impl::parseKvt(scene.get(), ko::File::open(file->path().c_str()), false)
             : impl::parseString(scene.get(), text);
    reading.seconds = cpuSeconds() - start;
    reading.scene = allocated() - allocatedBefore;
    reading.peak = field("/proc/self/status", "VmHWM") - resident;
    if (isRead != document.isRead) throw std::runtime_error("a document ends as it should not");
    const double startOfFreeing = cpuSeconds();
    scene.reset();
    reading.freeSeconds = cpuSeconds() - startOfFreeing;
    return reading;
}

}  // namespace

Reading least(const Reading& a, const Reading& b) {
    return {std::min(a.seconds, b.seconds), std::min(a.freeSeconds, b.freeSeconds),
            std::min(a.scene, b.scene), std::min(a.peak, b.peak), std::min(a.log, b.log)};
}

Reading readOnce(const Document& document, Source source) {
    return bench::inChild([&] { return measure(document, source, bench::Memory::New); });
}

Reading readInKeptMemory(const Document& document, Source source) {
    return bench::inChild([&] {
        bench::keepMemory();
        const auto again = [&] { return measure(document, source, bench::Memory::Kept); };
        // The first few leave memory in other pieces than the next one asks for, which then has to
        // get more from the system.
        constexpr int readings = 5;
        Reading reading = again();
        for (int i = 1; i < readings; ++i)
            reading = least(reading, again());
        return reading;
    });
}

double availableMemory() { return field("/proc/meminfo", "MemAvailable"); }

}  // namespace growth
