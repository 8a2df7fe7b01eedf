#include "figma/FigmaThread.h"

namespace varnel {

FigmaReply FigmaReply::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "a Figma reply");
    return {requireString(json, "id"),           requireString(json, "text"),
            requireString(json, "authorHandle"), optionalString(json, "authorImgURL"),
            requireString(json, "authorId"),     requireDate(json, "createdAt")};
}

Json FigmaReply::toJson() const {
    Json json{{"id", id},
              {"text", text},
              {"authorHandle", authorHandle},
              {"authorId", authorId},
              {"createdAt", createdAt.seconds}};
    if (authorImgURL)
        json["authorImgURL"] = *authorImgURL;
    return json;
}

FigmaThread FigmaThread::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "a Figma thread");
    FigmaThread t;
    t.rootId = requireString(json, "rootId");
    t.x = optionalNumber(json, "x");
    t.y = optionalNumber(json, "y");
    t.text = requireString(json, "text");
    t.authorHandle = requireString(json, "authorHandle");
    t.authorImgURL = optionalString(json, "authorImgURL");
    t.authorId = requireString(json, "authorId");
    t.createdAt = requireDate(json, "createdAt");
    t.resolved = requireBool(json, "resolved");
    t.replies = requireArray<FigmaReply>(json, "replies", &FigmaReply::fromJson);
    return t;
}

Json FigmaThread::toJson() const {
    Json json{
        {"rootId", rootId},
        {"text", text},
        {"authorHandle", authorHandle},
        {"authorId", authorId},
        {"createdAt", createdAt.seconds},
        {"resolved", resolved},
        {"replies", coding::writeArray(replies, [](const FigmaReply& r) { return r.toJson(); })}};
    if (x)
        json["x"] = *x;
    if (y)
        json["y"] = *y;
    if (authorImgURL)
        json["authorImgURL"] = *authorImgURL;
    return json;
}

} // namespace varnel
