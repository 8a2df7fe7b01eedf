// What the library refuses, and how it says so: full disks, names that aren't text, screens too
// large to decode.
#include "archive/AppArchive.h"
#include "archive/Zip.h"
#include "library/Text.h"
#include "support/CliRun.h"
#include "support/TestLibrary.h"
#include "text/ScreenOCR.h"
#include "thumbnails/ThumbnailFiles.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <zlib.h>

using namespace varnel;
using namespace varnel::test;

namespace {

// A real file system of a few megabytes, so that a disk really fills up. Mounting needs the
// privilege to; without it the tests that need one are skipped.
class SmallDisk {
public:
    SmallDisk(const fs::path& folder, const std::string& size) : folder_(folder) {
        fs::create_directories(folder);
        mounted_ = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
    }
    ~SmallDisk() {
        if (mounted_)
            ::umount2(folder_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }

private:
    fs::path folder_;
    bool mounted_ = false;
};

// A real PNG of width × height black pixels (one bit each), written row by row: a few kilobytes
// on disk, gigabytes once decoded.
void writeHugePng(const fs::path& file, std::uint32_t width, std::uint32_t height) {
    auto chunk = [](std::string& out, const char* type, const std::string& data) {
        auto be = [&](std::uint32_t v) {
            for (int s = 24; s >= 0; s -= 8)
                out.push_back(static_cast<char>((v >> s) & 0xff));
        };
        be(static_cast<std::uint32_t>(data.size()));
        const std::string body = type + data;
        out += body;
        be(static_cast<std::uint32_t>(
            crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()))));
    };
    std::string ihdr;
    for (std::uint32_t v : {width, height})
        for (int s = 24; s >= 0; s -= 8)
            ihdr.push_back(static_cast<char>((v >> s) & 0xff));
    ihdr += std::string("\x01\x00\x00\x00\x00", 5); // 1-bit grey, deflate, no interlace

    z_stream z{};
    deflateInit(&z, 9);
    const std::string row(1 + (width + 7) / 8, '\0');
    std::string idat(1 << 16, '\0');
    std::string compressed;
    for (std::uint32_t y = 0; y <= height; ++y) {
        const bool last = y == height;
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(row.data()));
        z.avail_in = last ? 0 : static_cast<uInt>(row.size());
        do {
            z.next_out = reinterpret_cast<Bytef*>(idat.data());
            z.avail_out = static_cast<uInt>(idat.size());
            deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
            compressed.append(idat.data(), idat.size() - z.avail_out);
        } while (z.avail_out == 0);
    }
    deflateEnd(&z);
    std::string png("\x89PNG\r\n\x1a\n", 8);
    chunk(png, "IHDR", ihdr);
    chunk(png, "IDAT", compressed);
    chunk(png, "IEND", "");
    writeFile(file, png);
}

class LimitsTest : public ::testing::Test {
protected:
    TempDir dir;
    fs::path root = dir / "Library";
    CliResult cli(std::vector<std::string> args) { return runCli(std::move(args), root.string()); }
};

} // namespace

TEST_F(LimitsTest, NamesAreTrimmedOfEveryUnicodeSpaceAndMustBeText) {
    EXPECT_EQ(Text::trimmed("\u3000\u00a0 Café\u2003\n"), "Café");
    EXPECT_EQ(Text::trimmed("\xef\xbb\xbfSign up\u202f"), "Sign up");
    EXPECT_EQ(Text::trimmed("a\u3000b"), "a\u3000b") << "inner space stays";

    CliResult blank = cli({"create-flow", "--app", "Acme", "--name", "\u3000\u2003"});
    EXPECT_EQ(blank.code, cli::kFailed);
    EXPECT_NE(blank.err.find("name"), std::string::npos) << blank.err;
    CliResult made = cli({"create-flow", "--app", "\u00a0Acme\u00a0", "--name", "\u3000Log in"});
    ASSERT_EQ(made.code, cli::kSuccess) << made.err;
    EXPECT_EQ(made.out, "acme/uncategorized/log-in\n");

    const auto before = treeSnapshot(root);
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"create-flow", "--app", "Ac\xffme", "--name", "x"},
          std::vector<std::string>{"create-flow", "--app", "Acme", "--name", "\xc3("}}) {
        CliResult refused = cli(bad);
        EXPECT_EQ(refused.code, cli::kFailed);
        EXPECT_EQ(refused.err, std::string("varnel-cli: ") + Text::kNotUtf8 + "\n");
    }
    EXPECT_EQ(treeSnapshot(root), before) << "nothing written for a refused name";
}

TEST_F(LimitsTest, AFullDiskIsNamedWithWhatIsNeededAndFree) {
    SmallDisk disk(root, "2m");
    if (!disk.mounted())
        GTEST_SKIP() << "no privilege to mount a small file system here";
    SampleLibrary sample(root);
    const fs::path zip = dir / "Acme.varnel.zip";
    writeFile(dir / "big.mov", std::string(3'000'000, 'x'));

    CliResult added = cli({"add-screens", SampleLibrary::logIn, (dir / "big.mov").string()});
    EXPECT_EQ(added.code, cli::kFailed);
    EXPECT_NE(added.err.find("the disk is full (it needs 3.0 MB, and "), std::string::npos)
        << added.err;
    EXPECT_EQ(sample.store.meta(SampleLibrary::logIn).screens.size(), 2u);

    // An archive that unpacks to more than the disk has.
    FlowMeta meta = sample.store.meta(SampleLibrary::logIn);
    meta.id = "BIG";
    writeFile(dir / "payload/QuillaneExport/acme/x/big/meta.json",
              encodeLibraryJson(meta.toJson()));
    writeFile(dir / "payload/QuillaneExport/acme/x/big/01.png", std::string(3'000'000, 'p'));
    writeFile(
        dir / "payload/QuillaneExport/quillane-export.json",
        encodeLibraryJson(AppArchive::Manifest{1, "Acme", {meta.summary("acme/x/big")}}.toJson()));
    Zip::Writer writer(zip);
    writer.addBytes("QuillaneExport/quillane-export.json",
                    readFile(dir / "payload/QuillaneExport/quillane-export.json"), true);
    writer.addFile("QuillaneExport/acme/x/big/meta.json",
                   dir / "payload/QuillaneExport/acme/x/big/meta.json", true);
    writer.addFile("QuillaneExport/acme/x/big/01.png",
                   dir / "payload/QuillaneExport/acme/x/big/01.png", false);
    writer.close();
    CliResult imported = cli({"import-app", zip.string()});
    EXPECT_EQ(imported.code, cli::kFailed);
    EXPECT_NE(imported.err.find("The file couldn’t be unzipped. It needs 3.0 MB of free space on "
                                "the library’s disk, and "),
              std::string::npos)
        << imported.err;
}

TEST_F(LimitsTest, ScreensBeyondTheCapAreRefusedAndNeverDecodedInTheBackground) {
    SampleLibrary sample(root);
    const fs::path huge = dir / "huge.png";
    writeHugePng(huge, 20000, 20000);
    EXPECT_LT(fs::file_size(huge), 200'000u);

    CliResult added = cli({"add-screens", SampleLibrary::logIn, huge.string()});
    EXPECT_EQ(added.code, cli::kFailed);
    EXPECT_NE(added.err.find("“huge.png” is 20000 × 20000 pixels; Varnel takes screens of up to "
                             "16384 pixels a side and 100 megapixels."),
              std::string::npos)
        << added.err;
    EXPECT_EQ(sample.store.meta(SampleLibrary::logIn).screens.size(), 2u);

    // One that came in by hand is left alone by the background passes.
    fs::copy_file(huge, root / SampleLibrary::logIn / "02.png",
                  fs::copy_options::overwrite_existing);
    EXPECT_FALSE(ThumbnailFiles::render(root / SampleLibrary::logIn / "02.png", dir / "thumb.jpg"));
    EXPECT_FALSE(fs::exists(dir / "thumb.jpg"));
    ScreenOCR ocr;
    EXPECT_FALSE(ocr.recognize(root / SampleLibrary::logIn / "02.png"));
    // Exported and imported again, the flow holding it is skipped, with the reason.
    const fs::path zip = dir / "Acme.varnel.zip";
    ASSERT_EQ(cli({"export-app", "Acme", zip.string()}).code, cli::kSuccess);
    CliResult imported = cli({"import-app", zip.string(), "--duplicate"});
    EXPECT_NE(imported.err.find("skipped “Log in”: “02.png” is 20000 × 20000 pixels"),
              std::string::npos)
        << imported.err;
    EXPECT_EQ(imported.code, cli::kSuccess) << "the other flow came in";
}
