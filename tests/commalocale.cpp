#include "commalocale.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace kvt::test {

namespace {

namespace fs = std::filesystem;

class CommaPunctuation : public std::numpunct<char> {
  protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    string_type do_truename() const override { return "wahr"; }
    string_type do_falsename() const override { return "falsch"; }
};

// A folder with a locale for the C library, made here since few machines have one installed.
class LocaleFolder {
  public:
    LocaleFolder() {
        std::string pattern =
            (fs::temp_directory_path() / "kvt-locale-").string() + std::string(6, 'X');
        if (!mkdtemp(pattern.data())) return;
        path_ = pattern;
        std::ofstream(path_ / "source") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                           "grouping 3;3\nEND LC_NUMERIC\n";
        // It warns of all that the source leaves out, and its status says so.
        const std::string command = "localedef -c -i '" + (path_ / "source").string() + "' '" +
                                    (path_ / name).string() + "' >/dev/null 2>&1 || true";
        isMade_ = std::system(command.c_str()) == 0 && fs::exists(path_ / name / "LC_NUMERIC");
    }
    ~LocaleFolder() {
        std::error_code ignored;
        if (!path_.empty()) fs::remove_all(path_, ignored);
    }
    LocaleFolder(const LocaleFolder&) = delete;
    LocaleFolder& operator=(const LocaleFolder&) = delete;

    // Sets the locale for what concerns numbers; all else is not in it.
    bool set() const {
        return isMade_ && setenv("LOCPATH", path_.c_str(), 1) == 0 &&
               std::setlocale(LC_NUMERIC, name) != nullptr;
    }

  private:
    static constexpr const char* name = "comma";

    fs::path path_;
    bool isMade_ = false;
};

bool setCommaInC() {
    static const LocaleFolder folder;
    return folder.set();
}

}  // namespace

CommaLocale::CommaLocale()
    : formerC_(std::setlocale(LC_ALL, nullptr)),
      former_(std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation))),
      isInC_(setCommaInC()) {}

CommaLocale::~CommaLocale() {
    std::locale::global(former_);
    std::setlocale(LC_ALL, formerC_.c_str());
    unsetenv("LOCPATH");
}

}  // namespace kvt::test
