#include "output.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "context.h"

namespace dbutil {

namespace {

void Put(FILE* out, const std::string& s) {
    std::fwrite(s.data(), 1, s.size(), out);
}

class CsvWriter : public Writer {
  public:
    CsvWriter(FILE* out, std::string rowName) : out_(out), rowName_(std::move(rowName)) {}
    void Header(const std::vector<std::string>& names) override {
        names_ = names;
        std::vector<Cell> cells;
        for (const std::string& n : names)
            cells.push_back({Cell::Text, n});
        Line(cells, "the header");
    }
    void Row(const std::vector<Cell>& cells) override {
        ++rows_;
        Line(cells, "");
    }
    void End() override { std::fflush(out_); }

  private:
    void Line(const std::vector<Cell>& cells, const char* where) {
        line_.clear();
        for (size_t i = 0; i < cells.size(); ++i) {
            if (i) line_ += ',';
            if (!AppendCsvField(cells[i].text, line_)) {
                std::string what =
                    *where ? std::string(where) : rowName_ + " " + std::to_string(rows_);
                std::string column = i < names_.size() ? " field " + names_[i] : "";
                throw Failure(what + column +
                              " holds a line break or a quote before a comma, which "
                              "comma-separated text cannot carry (--json can)");
            }
        }
        // A lone empty field would make an empty line, which reads as none.
        if (cells.size() == 1 && line_.empty()) line_ = "\"\"";
        line_ += '\n';
        Put(out_, line_);
    }

    FILE* out_;
    std::string rowName_;
    std::vector<std::string> names_;
    std::string line_;
    unsigned long long rows_ = 0;
};

// Characters of UTF-8 text, for column widths.
size_t Width(const std::string& s) {
    size_t n = 0;
    for (unsigned char c : s)
        n += (c & 0xC0) != 0x80;
    return n;
}

class TableWriter : public Writer {
  public:
    explicit TableWriter(FILE* out) : out_(out) {}
    void Header(const std::vector<std::string>& names) override {
        names_ = names;
        widths_.assign(names.size(), 0);
        for (size_t i = 0; i < names.size(); ++i)
            widths_[i] = Width(names[i]);
    }
    void Row(const std::vector<Cell>& cells) override {
        if (!started_) {
            // Widths come from the first rows; later, wider values overflow.
            pending_.push_back(cells);
            for (size_t i = 0; i < cells.size() && i < widths_.size(); ++i)
                widths_[i] = std::max(widths_[i], std::min<size_t>(Width(cells[i].text), 40));
            if (pending_.size() >= kSample) Start();
            return;
        }
        Line(cells);
    }
    void End() override {
        Start();
        std::fflush(out_);
    }

  private:
    static constexpr size_t kSample = 200;

    void Start() {
        if (started_) return;
        started_ = true;
        std::string line, rule;
        for (size_t i = 0; i < names_.size(); ++i) {
            if (i) line += "  ", rule += "  ";
            line += names_[i] + std::string(widths_[i] - Width(names_[i]), ' ');
            rule += std::string(widths_[i], '-');
        }
        Trim(line);
        Put(out_, line + "\n" + rule + "\n");
        for (const auto& row : pending_)
            Line(row);
        pending_.clear();
    }
    void Line(const std::vector<Cell>& cells) {
        std::string line;
        for (size_t i = 0; i < cells.size(); ++i) {
            if (i) line += "  ";
            const std::string& t = cells[i].kind == Cell::Null ? kNull : cells[i].text;
            size_t w = i < widths_.size() ? widths_[i] : 0;
            size_t pad = w > Width(t) ? w - Width(t) : 0;
            if (cells[i].kind == Cell::Number)
                line += std::string(pad, ' ') + t;
            else
                line += t + std::string(pad, ' ');
        }
        Trim(line);
        line += '\n';
        Put(out_, line);
    }
    static void Trim(std::string& s) {
        while (!s.empty() && s.back() == ' ')
            s.pop_back();
    }

    inline static const std::string kNull = "";
    FILE* out_;
    std::vector<std::string> names_;
    std::vector<size_t> widths_;
    std::vector<std::vector<Cell>> pending_;
    bool started_ = false;
};

void JsonString(const std::string& s, std::string& out) {
    out += '"';
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof(buf), "\\u%04x", c);
                    out += buf;
                } else {
                    out += char(c);
                }
        }
    }
    out += '"';
}

// A number's text as JSON takes it; infinities and NaN have none.
bool JsonNumber(const std::string& s) {
    if (s.empty()) return false;
    for (char c : s)
        if (!(std::strchr("0123456789+-.eE", c))) return false;
    return true;
}

class JsonWriter : public Writer {
  public:
    explicit JsonWriter(FILE* out) : out_(out) {}
    void Header(const std::vector<std::string>& names) override {
        keys_.clear();
        for (const std::string& n : names) {
            std::string k;
            JsonString(n, k);
            keys_.push_back(k + ":");
        }
        Put(out_, "[");
    }
    void Row(const std::vector<Cell>& cells) override {
        line_ = first_ ? "\n{" : ",\n{";
        first_ = false;
        for (size_t i = 0; i < cells.size(); ++i) {
            if (i) line_ += ",";
            line_ += i < keys_.size() ? keys_[i] : "\"\":";
            const Cell& c = cells[i];
            switch (c.kind) {
                case Cell::Number:
                    line_ += JsonNumber(c.text) ? c.text : "null";
                    break;
                case Cell::Bool:
                    line_ += c.text == "0" ? "false" : "true";
                    break;
                case Cell::Text:
                    JsonString(c.text, line_);
                    break;
                default:
                    line_ += "null";
            }
        }
        line_ += "}";
        Put(out_, line_);
    }
    void End() override {
        Put(out_, first_ ? "]\n" : "\n]\n");
        std::fflush(out_);
    }

  private:
    FILE* out_;
    std::vector<std::string> keys_;
    std::string line_;
    bool first_ = true;
};

}  // namespace

bool AppendCsvField(const std::string& text, std::string& out) {
    // One pass: what needs quotes, and what no quoting can carry.
    bool comma = false, quoteComma = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\n' || c == '\r') return false;
        if (c == ',') {
            comma = true;
            if (i && text[i - 1] == '"') quoteComma = true;
        }
    }
    bool quote = !text.empty() &&
                 (comma || text.front() == '"' || std::isspace((unsigned char)text.front()) ||
                  std::isspace((unsigned char)text.back()));
    if (quote && quoteComma) return false;
    if (quote) out += '"';
    out += text;
    if (quote) out += '"';
    return true;
}

std::unique_ptr<Writer> MakeWriter(Format format, FILE* out, std::string rowName) {
    switch (format) {
        case Format::Csv:
            return std::make_unique<CsvWriter>(out, std::move(rowName));
        case Format::Json:
            return std::make_unique<JsonWriter>(out);
        default:
            return std::make_unique<TableWriter>(out);
    }
}

}  // namespace dbutil
