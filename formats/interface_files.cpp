// Files and formats for callers of the C interface.
#include <cstdlib>
#include <cstring>

#include "formats/page_files.h"
#include "pages/interface.h"
#include "pages/json.h"
#include "pages/operations.h"

struct PageFile {
  rastrel::formats::InputPages pages;
};
struct PageWriter {
  rastrel::formats::OutputPages pages;
};
struct EncodedPage {
  rastrel::formats::Encoded page;
};
struct RawPage {
  rastrel::formats::Raw page;
};

namespace rastrel::formats {
namespace {

PageFile* Opened(InputPages::Place place) { return new PageFile{InputPages(std::move(place))}; }

PageStream TakeStream(const PageStream* stream, bool isWritten, bool isRead) {
  Require(stream != nullptr, "there is no stream");
  const PageStream taken = TakeStruct(stream, PageStream{});
  Require(!isWritten || taken.write != nullptr, "the stream cannot be written to");
  Require(!isRead || (taken.read != nullptr && taken.length != nullptr), "the stream cannot be read from");
  return taken;
}

size_t IndexIn(const PageFile* file, int32_t index) {
  Require(file != nullptr, "there is no file");
  Require(index >= 0 && static_cast<size_t>(index) < file->pages.count(), "there is no such page");
  return static_cast<size_t>(index);
}

Options OptionsOf(const Format& format, const char* options) {
  return {format.options, options != nullptr ? options : ""};
}

const Metadata& Of(const PageMetadata* metadata) {
  static const Metadata kNone;
  return metadata != nullptr ? metadata->metadata : kNone;
}

// A raw page made of another.
template <class Move>
RawPage* MovedRaw(const RawPage* page, Move move) {
  return Guarded<RawPage*>(nullptr, [&] {
    Require(page != nullptr, "there is no page");
    return new RawPage{move(page->page)};
  });
}

const Format& FormatAt(int32_t index) {
  Require(index >= 0 && static_cast<size_t>(index) < Formats().size(), "there is no such format");
  return *Formats()[static_cast<size_t>(index)];
}

std::string FormatsAsJson() {
  JsonText formats = JsonText::Array();
  for (const Format* format : Formats()) {
    JsonText options = JsonText::Array();
    for (const OptionEntry& option : format->options) {
      JsonText entry = JsonText::Object();
      entry.Add("name", option.name).Add("help", option.help);
      if (option.choices != nullptr) {
        entry.Add("choices", option.choices);
      } else {
        entry.Add("least", option.least).Add("most", option.most);
      }
      options.Add("", entry.Add("default", option.standard));
    }
    formats.Add("", JsonText::Object()
                        .Add("name", format->name)
                        .Add("title", format->title)
                        .Add("extensions", format->extensions)
                        .Add("reads", format->isRead())
                        .Add("writes", format->isWritten())
                        .Add("manyPages", format->hasManyPages())
                        .Add("metadata", format->metadata)
                        .Add("options", options));
  }
  return formats.Text();
}

}  // namespace
}  // namespace rastrel::formats

using namespace rastrel::formats;

// ---- reading ----------------------------------------------------------------------------------------------

PageFile* RASTREL_CALL OpenPages(const char* path) {
  return Guarded<PageFile*>(nullptr, [&] {
    Require(path != nullptr, "there is no name");
    return Opened(std::string(path));
  });
}

PageFile* RASTREL_CALL OpenPagesInMemory(const void* bytes, size_t size) {
  return Guarded<PageFile*>(nullptr, [&] {
    Require(bytes != nullptr || size == 0, "there are no bytes");
    return Opened(std::span(static_cast<const uint8_t*>(bytes), size));
  });
}

PageFile* RASTREL_CALL OpenPagesFromStream(const PageStream* stream) {
  return Guarded<PageFile*>(nullptr,
                            [&] { return Opened(TakeStream(stream, /*isWritten=*/false, /*isRead=*/true)); });
}

void RASTREL_CALL ClosePages(PageFile* file) { delete file; }

int32_t RASTREL_CALL CountPages(const PageFile* file) {
  return file != nullptr ? static_cast<int32_t>(file->pages.count()) : 0;
}

const char* RASTREL_CALL DamageOfPages(const PageFile* file) {
  return file != nullptr && !file->pages.damage().empty() ? file->pages.damage().c_str() : nullptr;
}

const char* RASTREL_CALL FormatOfPages(const PageFile* file) {
  return file != nullptr ? file->pages.format().name : nullptr;
}

int RASTREL_CALL SetPageReadOptions(PageFile* file, const PageReadOptions* options) {
  return Guarded(0, [&] {
    Require(file != nullptr, "there is no file");
    const PageReadOptions taken = TakeStruct(options, PageReadOptions{});
    constexpr int kMostDpi = 20000;
    ReadOptions chosen;
    if (InRange(taken.dpi, 0, kMostDpi, "dpi is 0 to 20000") > 0) chosen.dpi = taken.dpi;
    constexpr int64_t kMost = INT64_MAX;
    if (InRange<int64_t>(taken.mostPixels, 0, kMost, "limits are not negative") > 0)
      chosen.mostPixels = taken.mostPixels;
    if (InRange<int64_t>(taken.mostBytes, 0, kMost, "limits are not negative") > 0)
      chosen.mostBytes = taken.mostBytes;
    if (InRange(taken.mostSeconds, 0.0, 1e9, "limits are not negative") > 0)
      chosen.mostSeconds = taken.mostSeconds;
    file->pages.SetOptions(chosen);
    return 1;
  });
}

int RASTREL_CALL DescribePageInFile(const PageFile* file, int32_t index, PageInfo* info) {
  return Guarded(0, [&] {
    GiveStruct(file->pages.Describe(IndexIn(file, index)), info);
    return 1;
  });
}

HGLOBAL RASTREL_CALL ReadPage(const PageFile* file, int32_t index, PageMetadata** metadata) {
  return Guarded<HGLOBAL>(nullptr, [&] {
    const size_t place = IndexIn(file, index);
    if (metadata == nullptr) return file->pages.Read(place, nullptr).Release();
    auto found = std::make_unique<PageMetadata>();
    Dib page = file->pages.Read(place, &found->metadata);
    *metadata = found.release();
    return page.Release();
  });
}

// ---- writing ----------------------------------------------------------------------------------------------

PageWriter* RASTREL_CALL CreatePages(const char* path, const char* format, const char* options) {
  return Guarded<PageWriter*>(nullptr, [&] {
    Require(path != nullptr, "there is no name");
    const Format& chosen = FormatToWrite(format, path);
    return new PageWriter{OutputPages(path, chosen, OptionsOf(chosen, options))};
  });
}

PageWriter* RASTREL_CALL CreatePagesInMemory(const char* format, const char* options) {
  return Guarded<PageWriter*>(nullptr, [&] {
    Require(format != nullptr, "there is no format");
    const Format& chosen = FormatToWrite(format, "");
    return new PageWriter{OutputPages(std::nullopt, chosen, OptionsOf(chosen, options))};
  });
}

PageWriter* RASTREL_CALL CreatePagesOnStream(const PageStream* stream, const char* format,
                                             const char* options) {
  return Guarded<PageWriter*>(nullptr, [&] {
    Require(format != nullptr, "there is no format");
    const Format& chosen = FormatToWrite(format, "");
    return new PageWriter{
        OutputPages(TakeStream(stream, /*isWritten=*/true, /*isRead=*/chosen.hasManyPages()), chosen,
                    OptionsOf(chosen, options))};
  });
}

int RASTREL_CALL SetPageFileRules(PageWriter* writer, const PageFileRules* rules) {
  return Guarded(0, [&] {
    Require(writer != nullptr, "there is no file");
    const PageFileRules taken = TakeStruct(rules, PageFileRules{});
    writer->pages.SetRules({.keepsExisting = taken.keepExisting != 0,
                            .skipsSync = taken.skipSync != 0,
                            .keepsTime = taken.keepTime != 0,
                            .source = taken.source != nullptr ? taken.source : "",
                            .path = taken.path != nullptr ? taken.path : ""});
    return 1;
  });
}

int RASTREL_CALL AppendPage(PageWriter* writer, HGLOBAL page, const PageMetadata* metadata) {
  return Guarded(0, [&] {
    Require(writer != nullptr, "there is no file");
    const InputPage input(page);
    writer->pages.Append(input.dib(), Of(metadata));
    return 1;
  });
}

int RASTREL_CALL FinishPages(PageWriter* writer) {
  return Guarded(0, [&] {
    Require(writer != nullptr, "there is no file");
    const std::unique_ptr<PageWriter> owner(writer);
    writer->pages.Finish();
    return 1;
  });
}

void* RASTREL_CALL FinishPagesInMemory(PageWriter* writer, size_t* size) {
  return Guarded<void*>(nullptr, [&] {
    Require(writer != nullptr, "there is no file");
    const std::unique_ptr<PageWriter> owner(writer);
    Require(size != nullptr, "there is no room for the result");
    const std::vector<uint8_t> bytes = writer->pages.FinishInMemory();
    void* copy = std::malloc(bytes.size());
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, bytes.data(), bytes.size());
    *size = bytes.size();
    return copy;
  });
}

void RASTREL_CALL FreePageBytes(void* bytes) { std::free(bytes); }

void RASTREL_CALL AbandonPages(PageWriter* writer) { delete writer; }

void RASTREL_CALL RemoveUnfinishedPages(void) { RemoveUnfinishedFiles(); }

EncodedPage* RASTREL_CALL EncodePage(HGLOBAL page, const PageMetadata* metadata, const char* format,
                                     const char* options) {
  return Guarded<EncodedPage*>(nullptr, [&] {
    Require(format != nullptr, "there is no format");
    const Format& chosen = FormatToWrite(format, "");
    const InputPage input(page);
    return new EncodedPage{Encode(input.dib(), Of(metadata), chosen, OptionsOf(chosen, options))};
  });
}

int RASTREL_CALL AppendEncodedPage(PageWriter* writer, const EncodedPage* page) {
  return Guarded(0, [&] {
    Require(writer != nullptr, "there is no file");
    Require(page != nullptr, "there is no page");
    writer->pages.Append(page->page);
    return 1;
  });
}

void RASTREL_CALL FreeEncodedPage(EncodedPage* page) { delete page; }

// ---- pages as files have them -----------------------------------------------------------------------------

RawPage* RASTREL_CALL ReadRawPage(const PageFile* file, int32_t index, PageMetadata** metadata) {
  return Guarded<RawPage*>(nullptr, [&] {
    const size_t place = IndexIn(file, index);
    auto found = std::make_unique<PageMetadata>();
    auto page = std::make_unique<RawPage>(RawPage{file->pages.ReadRaw(place, &found->metadata)});
    if (metadata != nullptr) *metadata = found.release();
    return page.release();
  });
}

void RASTREL_CALL FreeRawPage(RawPage* page) { delete page; }

int RASTREL_CALL DescribeRawPage(const RawPage* page, RawPageInfo* info) {
  return Guarded(0, [&] {
    Require(page != nullptr, "there is no page");
    const Raw& raw = page->page;
    GiveStruct(RawPageInfo{.size = sizeof(RawPageInfo),
                           .width = raw.width,
                           .height = raw.height,
                           .bits = raw.bits,
                           .samples = raw.samples,
                           .dpiX = DotsPerInch(raw.resolution.x),
                           .dpiY = DotsPerInch(raw.resolution.y)},
               info);
    return 1;
  });
}

RawPage* RASTREL_CALL FlipRawPage(const RawPage* page, int direction) {
  return MovedRaw(page, [=](const Raw& raw) {
    return Flipped(raw, InRange(direction, 0, 1, "there is no such direction") == DirectionVertical);
  });
}

RawPage* RASTREL_CALL TurnRawPage(const RawPage* page, int quarters) {
  return MovedRaw(page, [=](const Raw& raw) { return Turned(raw, quarters); });
}

RawPage* RASTREL_CALL CropRawPage(const RawPage* page, int left, int top, int width, int height) {
  return MovedRaw(page, [=](const Raw& raw) { return Cropped(raw, left, top, width, height); });
}

int32_t RASTREL_CALL SplitRawPage(const RawPage* page, int width, int height, RawPage** tiles,
                                  int32_t capacity) {
  return Guarded<int32_t>(0, [&] {
    Require(page != nullptr, "there is no page");
    const Raw& whole = page->page;
    const int32_t count = CountTiles(whole.width, whole.height, width, height);
    if (tiles == nullptr) return count;
    Require(capacity >= count, "there is no room for all tiles");
    std::vector<std::unique_ptr<RawPage>> made;
    for (const Area& area : TileAreas(whole.width, whole.height, width, height)) {
      made.push_back(std::make_unique<RawPage>(
          RawPage{Cropped(whole, area.left, area.top, area.width(), area.height())}));
    }
    for (size_t i = 0; i < made.size(); ++i) tiles[i] = made[i].release();
    return count;
  });
}

int RASTREL_CALL AppendRawPage(PageWriter* writer, const RawPage* page, const PageMetadata* metadata) {
  return Guarded(0, [&] {
    Require(writer != nullptr, "there is no file");
    Require(page != nullptr, "there is no page");
    writer->pages.AppendRaw(page->page, Of(metadata));
    return 1;
  });
}

EncodedPage* RASTREL_CALL EncodeRawPage(const RawPage* page, const PageMetadata* metadata, const char* format,
                                        const char* options) {
  return Guarded<EncodedPage*>(nullptr, [&] {
    Require(page != nullptr, "there is no page");
    Require(format != nullptr, "there is no format");
    const Format& chosen = FormatToWrite(format, "");
    return new EncodedPage{EncodeRaw(page->page, Of(metadata), chosen, OptionsOf(chosen, options))};
  });
}

// ---- formats ----------------------------------------------------------------------------------------------

int32_t RASTREL_CALL CountPageFormats(void) { return static_cast<int32_t>(Formats().size()); }

int RASTREL_CALL GetPageFormat(int32_t index, PageFormat* format) {
  return Guarded(0, [&] {
    const Format& entry = FormatAt(index);
    GiveStruct(PageFormat{.size = sizeof(PageFormat),
                          .name = entry.name,
                          .title = entry.title,
                          .extensions = entry.extensions,
                          .isRead = entry.isRead(),
                          .isWritten = entry.isWritten(),
                          .hasManyPages = entry.hasManyPages(),
                          .options = static_cast<int32_t>(entry.options.size()),
                          .metadata = entry.metadata},
               format);
    return 1;
  });
}

int RASTREL_CALL GetPageFormatOption(int32_t format, int32_t index, PageFormatOption* option) {
  return Guarded(0, [&] {
    const Format& entry = FormatAt(format);
    Require(index >= 0 && static_cast<size_t>(index) < entry.options.size(), "there is no such option");
    const OptionEntry& found = entry.options[static_cast<size_t>(index)];
    GiveStruct(PageFormatOption{.size = sizeof(PageFormatOption),
                                .name = found.name,
                                .help = found.help,
                                .choices = found.choices,
                                .least = found.least,
                                .most = found.most,
                                .standard = found.standard},
               option);
    return 1;
  });
}

int32_t RASTREL_CALL FindPageFormat(const char* extension) {
  return Guarded<int32_t>(-1, [&] {
    Require(extension != nullptr, "there is no ending");
    const Format* found = FindFormat(extension);
    for (size_t i = 0; i < Formats().size(); ++i) {
      if (Formats()[i] == found) return static_cast<int32_t>(i);
    }
    return int32_t{-1};
  });
}

const char* RASTREL_CALL PageFormatsJson(void) {
  return Guarded<const char*>(nullptr, [] {
    static const std::string kText = FormatsAsJson();
    return kText.c_str();
  });
}
