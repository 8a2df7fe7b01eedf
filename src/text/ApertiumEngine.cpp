#include "text/ApertiumEngine.h"

#include "text/Languages.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <sstream>

namespace varnel {

namespace {

constexpr int kTimeoutMs = 30000;

// Runs the command with `input` on its standard input; its output, or none when it failed.
std::optional<std::string> run(const std::string& program, const QStringList& arguments,
                               const std::string& input, std::string* failure = nullptr) {
    QProcess process;
    process.start(QString::fromStdString(program), arguments);
    if (!process.waitForStarted(kTimeoutMs))
        return std::nullopt;
    process.write(input.data(), static_cast<qint64>(input.size()));
    process.closeWriteChannel();
    if (!process.waitForFinished(kTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        if (failure)
            *failure = "Apertium took too long.";
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        if (failure)
            *failure = process.readAllStandardError().trimmed().toStdString();
        return std::nullopt;
    }
    return process.readAllStandardOutput().toStdString();
}

} // namespace

ApertiumEngine::ApertiumEngine(std::string program) : program_(std::move(program)) {
    // `apertium -l` lists its modes: "spa-eng", "eng-spa", "spa-eng_US"...
    const auto listed = run(program_, {"-l"}, {});
    if (!listed)
        return;
    installed_ = true;
    std::istringstream modes(*listed);
    std::string mode;
    while (modes >> mode) {
        const auto dash = mode.find('-');
        if (dash == std::string::npos || mode.find('_') != std::string::npos)
            continue; // variants such as spa-eng_US: the plain pair is enough
        const auto from = Languages::twoLetter(mode.substr(0, dash));
        const auto to = Languages::twoLetter(mode.substr(dash + 1));
        if (!from || !to)
            continue;
        pairs_.insert({*from, *to});
        modes_.emplace(std::pair{*from, *to}, mode);
    }
}

bool ApertiumEngine::translates(const std::string& from, const std::string& to) const {
    return pairs_.contains({from, to});
}

std::vector<std::string> ApertiumEngine::translate(const std::vector<std::string>& lines,
                                                   const std::string& from,
                                                   const std::string& to) const {
    const auto mode = modes_.find({from, to});
    if (mode == modes_.end())
        throw TranslationError("Apertium has no " + Languages::name(from) + " to " +
                               Languages::name(to) + " pair installed.");
    // One line each; Apertium keeps line breaks as they are. -u: no marks on unknown words.
    std::string input;
    for (const auto& line : lines) {
        std::string flat = line;
        for (char& c : flat)
            if (c == '\n' || c == '\r')
                c = ' ';
        input += flat + "\n";
    }
    std::string failure;
    const auto output =
        run(program_, {"-u", QString::fromStdString(mode->second)}, input, &failure);
    if (!output)
        throw TranslationError("Apertium could not translate: " +
                               (failure.empty() ? std::string("it did not run.") : failure));
    std::vector<std::string> out;
    std::istringstream text(*output);
    std::string line;
    while (out.size() < lines.size() && std::getline(text, line))
        out.push_back(line);
    if (out.size() != lines.size())
        throw TranslationError("Apertium gave back fewer lines than it was given.");
    return out;
}

} // namespace varnel
