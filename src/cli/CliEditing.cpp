#include "cli/CliEditing.h"

#include "app/AppSettings.h"
#include "editing/ScreenEdits.h"
#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"

#include <charconv>
#include <cmath>
#include <ostream>

namespace varnel::cli {

namespace {

std::vector<double> numbers(const std::string& text) {
    std::vector<double> values;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        double value = 0;
        const auto [ptr, ec] = std::from_chars(text.data() + start, text.data() + end, value);
        if (ec != std::errc() || ptr != text.data() + end)
            return {};
        values.push_back(value);
        start = end + 1;
    }
    return values;
}

// Every value of a repeatable option, in order; the rest of the arguments stay.
std::vector<std::string> repeated(std::vector<std::string>& arguments, const std::string& name) {
    std::vector<std::string> values, rest;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] != name) {
            rest.push_back(arguments[i]);
            continue;
        }
        if (++i == arguments.size())
            throw UsageError(name + " needs a value");
        values.push_back(arguments[i]);
    }
    arguments = rest;
    return values;
}

void requireScreen(FlowStore& store, const std::string& folder, const std::string& file) {
    if (!store.meta(folder).screen(file))
        throw ScreenNotFoundError(folder, file);
}

} // namespace

RedactShape parseZone(const std::string& text) {
    const auto colon = text.find(':');
    const auto kind = redactShapeKind(text.substr(0, colon));
    const auto values =
        colon == std::string::npos ? std::vector<double>{} : numbers(text.substr(colon + 1));
    if (!kind || values.size() != 4)
        throw UsageError("a zone is rect|ellipse:x,y,w,h, not “" + text + "”");
    for (double value : values)
        if (!std::isfinite(value))
            throw UsageError("the zone “" + text + "” has a value that isn’t a number");
    if (!(values[2] > 0) || !(values[3] > 0))
        throw UsageError("the zone “" + text + "” needs a width and a height");
    // Finite values are clamped to the picture, as a zone dragged past an edge is.
    const auto rect = clampedToPicture({values[0], values[1], values[2], values[3]});
    if (!rect)
        throw UsageError("the zone “" + text + "” lies outside the picture (0..1)");
    return {newUUIDString(), *kind, *rect};
}

int redact(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    std::vector<RedactShape> shapes;
    for (const auto& zone : repeated(inv.arguments, "--zone"))
        shapes.push_back(parseZone(zone));
    auto opts = options(inv.arguments, {"--preset"});
    if (inv.arguments.size() != 2)
        throw UsageError("redact needs FOLDER and FILE");
    if (shapes.empty())
        throw UsageError("redact needs at least one --zone");
    const AppSettings settings;
    RedactStyle style = settings.redactStyle();
    if (opts.contains("--preset")) {
        if (opts["--preset"] == "light")
            style = settings.redactLight();
        else if (opts["--preset"] == "dark")
            style = settings.redactDark();
        else
            throw UsageError("--preset is light or dark");
    }
    const std::string& folder = inv.arguments[0];
    const std::string& file = inv.arguments[1];
    requireScreen(store, folder, file);
    if (ScreenFiles::isClip(file)) {
        int shown = -1;
        const bool baked =
            ScreenEdits::saveClip(store, folder, file, shapes, style, [&](double done) {
                const int percent = static_cast<int>(done * 100);
                if (percent / 10 != shown / 10) {
                    shown = percent;
                    err << "Re-encoding the clip… " << percent << "%\n";
                }
            });
        if (!baked)
            throw LibraryError("The video couldn’t be saved. The clip on disk is unchanged.");
    } else {
        // The zones replace the screen's zones; its patches stay.
        const auto kept = ScreenEdits::patchDrafts(store, folder, file);
        ScreenEdits::save(store, folder, file, shapes, style, kept);
    }
    out << folder << "/" << file << "\n";
    return kSuccess;
}

int revert(Invocation& inv, FlowStore& store, std::ostream& out) {
    if (inv.arguments.size() != 2)
        throw UsageError("revert needs FOLDER and FILE");
    const std::string& folder = inv.arguments[0];
    const std::string& file = inv.arguments[1];
    requireScreen(store, folder, file);
    ScreenEdits::revert(store, folder, file);
    out << folder << "/" << file << "\n";
    return kSuccess;
}

} // namespace varnel::cli
