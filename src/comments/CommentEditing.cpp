#include "comments/CommentEditing.h"

#include "library/Text.h"
#include "library/Uuid.h"

#include <algorithm>

namespace varnel::CommentEditing {

std::optional<ViewPoint> draftPosition(ViewPoint click, ViewRect image) {
    if (!(image.width > 0) || !(image.height > 0))
        return std::nullopt;
    if (click.x < image.x || click.y < image.y || click.x > image.x + image.width ||
        click.y > image.y + image.height)
        return std::nullopt;
    return ViewPoint{(click.x - image.x) / image.width, (click.y - image.y) / image.height};
}

ViewPoint movedPosition(ViewPoint start, ViewPoint translation, ViewRect image) {
    if (!(image.width > 0) || !(image.height > 0))
        return start;
    return {std::clamp(start.x + translation.x / image.width, 0.0, 1.0),
            std::clamp(start.y + translation.y / image.height, 0.0, 1.0)};
}

std::optional<std::vector<ScreenComment>> submit(std::vector<ScreenComment> pins,
                                                 const std::optional<std::string>& editingId,
                                                 ViewPoint position, const std::string& text,
                                                 Date now) {
    std::string clean = Text::trimmed(text);
    if (clean.empty())
        return std::nullopt;
    if (editingId) {
        auto it = std::find_if(pins.begin(), pins.end(),
                               [&](const ScreenComment& c) { return c.id == *editingId; });
        if (it == pins.end())
            return std::nullopt;
        it->text = std::move(clean);
        return pins;
    }
    ScreenComment pin;
    pin.id = newUUIDString();
    pin.x = position.x;
    pin.y = position.y;
    pin.text = std::move(clean);
    pin.createdAt = now;
    pins.push_back(std::move(pin));
    return pins;
}

std::vector<ScreenComment> remove(std::vector<ScreenComment> pins, const std::string& id) {
    std::erase_if(pins, [&](const ScreenComment& c) { return c.id == id; });
    return pins;
}

} // namespace varnel::CommentEditing
