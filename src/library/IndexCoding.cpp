#include "library/IndexCoding.h"

#include "library/Utf8.h"

#include <nlohmann/json.hpp>

#include <bitset>
#include <cmath>

namespace varnel::IndexCoding {

namespace {

void appendString(std::string& out, std::string_view text) {
    // The shared encoder refuses malformed UTF-8 too; writing it would make the index unreadable.
    if (!Utf8::isValid(text))
        throw CodingError("a name is not valid UTF-8");
    out.push_back('"');
    for (char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (c <= 0x1F) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
                out += buffer;
            } else {
                out.push_back(ch);
            }
        }
    }
    out.push_back('"');
}

void appendDouble(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char buffer[64];
    char* end = nlohmann::detail::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, end);
}

// Writes `"key": ` at the given indentation, after a comma when it is not the first member.
void appendKey(std::string& out, const char* key, int indent, bool& first) {
    if (!first)
        out += ",\n";
    first = false;
    out.append(static_cast<std::size_t>(indent), ' ');
    out.push_back('"');
    out += key;
    out += "\": ";
}

void appendSummary(std::string& out, const FlowSummary& s) {
    out += "    {\n";
    bool first = true;
    // Keys in sorted order, as the shared encoder writes them.
    if (s.application) {
        appendKey(out, "application", 6, first);
        appendString(out, *s.application);
    }
    if (s.categoryL1) {
        appendKey(out, "categoryL1", 6, first);
        appendString(out, *s.categoryL1);
    }
    appendKey(out, "date", 6, first);
    appendDouble(out, s.date.seconds);
    appendKey(out, "folderName", 6, first);
    appendString(out, s.folderName);
    appendKey(out, "id", 6, first);
    appendString(out, s.id);
    appendKey(out, "name", 6, first);
    appendString(out, s.name);
    appendKey(out, "screenCount", 6, first);
    out += std::to_string(s.screenCount);
    out += "\n    }";
}

// Streams index.json into records, enforcing the rules of LibraryIndex::fromJson.
class IndexReader : public nlohmann::json_sax<Json> {
public:
    LibraryIndex index;

    bool null() override { return scalar(Value::null); }
    bool boolean(bool) override { return scalar(Value::other); }
    bool number_integer(number_integer_t v) override {
        return number(static_cast<double>(v), true);
    }
    bool number_unsigned(number_unsigned_t v) override {
        return number(static_cast<double>(v), true);
    }
    bool number_float(number_float_t v, const string_t&) override { return number(v, false); }
    bool string(string_t& v) override {
        text_ = std::move(v);
        return scalar(Value::text);
    }
    bool binary(binary_t&) override { return scalar(Value::other); }

    bool start_object(std::size_t) override {
        if (skipping())
            return ++skip_, true;
        switch (where_) {
        case Where::start:
            where_ = Where::root;
            return true;
        case Where::flows:
            where_ = Where::summary;
            summary_ = {};
            seen_.reset();
            return true;
        case Where::categories:
            where_ = Where::category;
            category_.reset();
            return true;
        default:
            return beginSkipOrFail("an object");
        }
    }

    bool end_object() override {
        if (skipping())
            return --skip_, true;
        if (where_ == Where::summary) {
            for (auto [bit, key] : {std::pair{0, "id"},
                                    {2, "name"},
                                    {3, "folderName"},
                                    {5, "date"},
                                    {6, "screenCount"}}) {
                if (!seen_.test(static_cast<std::size_t>(bit)))
                    throw CodingError(std::string("key “") + key + "” is missing");
            }
            index.flows.push_back(std::move(summary_));
            where_ = Where::flows;
        } else if (where_ == Where::category) {
            if (!category_)
                throw CodingError("key “name” is missing");
            index.categories.push_back({std::move(*category_)});
            where_ = Where::categories;
        } else if (where_ == Where::root) {
            if (!sawFlows_)
                throw CodingError("key “flows” is missing");
            if (!sawCategories_)
                throw CodingError("key “categories” is missing");
            where_ = Where::done;
        }
        return true;
    }

    bool start_array(std::size_t) override {
        if (skipping())
            return ++skip_, true;
        if (where_ == Where::root && key_ == "flows") {
            where_ = Where::flows;
            sawFlows_ = true;
            return true;
        }
        if (where_ == Where::root && key_ == "categories") {
            where_ = Where::categories;
            sawCategories_ = true;
            return true;
        }
        return beginSkipOrFail("an array");
    }

    bool end_array() override {
        if (skipping())
            return --skip_, true;
        where_ = Where::root;
        return true;
    }

    bool key(string_t& k) override {
        if (!skipping())
            key_ = std::move(k);
        return true;
    }

    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& e) override {
        throw CodingError(std::string("not valid JSON (") + e.what() + ")");
    }

private:
    enum class Where { start, root, flows, summary, categories, category, done };
    enum class Value { null, text, other };

    bool skipping() const { return skip_ > 0; }

    // Unknown keys of an object are skipped whole; anything else out of place is an error.
    bool beginSkipOrFail(const char* what) {
        if (where_ == Where::root || where_ == Where::summary || where_ == Where::category) {
            if (where_ == Where::root && (key_ == "flows" || key_ == "categories"))
                throw CodingError("key “" + key_ + "” is not an array");
            if (where_ == Where::summary && isSummaryKey())
                throw CodingError("key “" + key_ + "” has the wrong type");
            if (where_ == Where::category && key_ == "name")
                throw CodingError("key “name” is not a string");
            skip_ = 1;
            return true;
        }
        if (where_ == Where::flows)
            throw CodingError("a flow summary is not an object");
        if (where_ == Where::categories)
            throw CodingError("a category is not an object");
        throw CodingError(std::string("the library index is ") + what + " in the wrong place");
    }

    bool isSummaryKey() const {
        return key_ == "id" || key_ == "application" || key_ == "name" || key_ == "folderName" ||
               key_ == "categoryL1" || key_ == "date" || key_ == "screenCount";
    }

    bool number(double value, bool integral) {
        if (skipping())
            return true;
        if (where_ == Where::summary && key_ == "date") {
            summary_.date = Date{value};
            seen_.set(5);
            return true;
        }
        if (where_ == Where::summary && key_ == "screenCount") {
            if (!integral && (std::trunc(value) != value || std::fabs(value) >= 9.0e15))
                throw CodingError("key “screenCount” is not an integer");
            summary_.screenCount = static_cast<std::int64_t>(value);
            seen_.set(6);
            return true;
        }
        return scalar(Value::other);
    }

    bool scalar(Value kind) {
        if (skipping())
            return true;
        switch (where_) {
        case Where::summary:
            return summaryValue(kind);
        case Where::category:
            if (key_ == "name") {
                if (kind == Value::text)
                    category_ = std::move(text_);
                else if (kind != Value::null)
                    throw CodingError("key “name” is not a string");
            }
            return true;
        case Where::root:
            if ((key_ == "flows" || key_ == "categories") && kind != Value::null)
                throw CodingError("key “" + key_ + "” is not an array");
            return true;
        case Where::flows:
            throw CodingError("a flow summary is not an object");
        case Where::categories:
            throw CodingError("a category is not an object");
        default:
            throw CodingError("the library index is not an object");
        }
    }

    bool summaryValue(Value kind) {
        struct Field {
            const char* key;
            int bit;
            bool optional;
        };
        static constexpr Field kStrings[] = {{"id", 0, false},
                                             {"application", 1, true},
                                             {"name", 2, false},
                                             {"folderName", 3, false},
                                             {"categoryL1", 4, true}};
        for (const Field& f : kStrings) {
            if (key_ != f.key)
                continue;
            if (kind == Value::null)
                return true;
            if (kind != Value::text)
                throw CodingError("key “" + key_ + "” is not a string");
            seen_.set(static_cast<std::size_t>(f.bit));
            switch (f.bit) {
            case 0:
                summary_.id = std::move(text_);
                break;
            case 1:
                summary_.application = std::move(text_);
                break;
            case 2:
                summary_.name = std::move(text_);
                break;
            case 3:
                summary_.folderName = std::move(text_);
                break;
            default:
                summary_.categoryL1 = std::move(text_);
            }
            return true;
        }
        if ((key_ == "date" || key_ == "screenCount") && kind != Value::null)
            throw CodingError("key “" + key_ + "” is not a number");
        return true;
    }

    Where where_ = Where::start;
    std::string key_;
    std::string text_;
    int skip_ = 0;
    bool sawFlows_ = false;
    bool sawCategories_ = false;
    FlowSummary summary_;
    std::bitset<7> seen_;
    std::optional<std::string> category_;
};

} // namespace

std::string encode(const LibraryIndex& index) {
    std::string out;
    out.reserve(64 + index.flows.size() * 260);
    out += "{\n  \"categories\": ";
    if (index.categories.empty()) {
        out += "[]";
    } else {
        out += "[\n";
        for (std::size_t i = 0; i < index.categories.size(); ++i) {
            out += i ? ",\n    {\n      \"name\": " : "    {\n      \"name\": ";
            appendString(out, index.categories[i].name);
            out += "\n    }";
        }
        out += "\n  ]";
    }
    out += ",\n  \"flows\": ";
    if (index.flows.empty()) {
        out += "[]";
    } else {
        out += "[\n";
        for (std::size_t i = 0; i < index.flows.size(); ++i) {
            if (i)
                out += ",\n";
            appendSummary(out, index.flows[i]);
        }
        out += "\n  ]";
    }
    out += "\n}\n";
    return out;
}

LibraryIndex decode(std::string_view bytes) {
    IndexReader reader;
    Json::sax_parse(bytes.begin(), bytes.end(), &reader);
    return std::move(reader.index);
}

} // namespace varnel::IndexCoding
