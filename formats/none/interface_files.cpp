// The file functions of a library that was built without file formats.
#include "pages/interface.h"

namespace rastrel::pages {
namespace {

template <class Result>
Result Refuse() {
  SetPagesError(ErrUnsupported, "this library was built without file formats");
  return Result{};
}

}  // namespace
}  // namespace rastrel::pages

using namespace rastrel::pages;

PageFile* RASTREL_CALL OpenPages(const char*) { return Refuse<PageFile*>(); }
PageFile* RASTREL_CALL OpenPagesInMemory(const void*, size_t) { return Refuse<PageFile*>(); }
PageFile* RASTREL_CALL OpenPagesFromStream(const PageStream*) { return Refuse<PageFile*>(); }
void RASTREL_CALL ClosePages(PageFile*) {}
int32_t RASTREL_CALL CountPages(const PageFile*) { return 0; }
const char* RASTREL_CALL DamageOfPages(const PageFile*) { return nullptr; }
const char* RASTREL_CALL FormatOfPages(const PageFile*) { return nullptr; }
int RASTREL_CALL DescribePageInFile(const PageFile*, int32_t, PageInfo*) { return Refuse<int>(); }
int RASTREL_CALL SetPageReadOptions(PageFile*, const PageReadOptions*) { return Refuse<int>(); }
HGLOBAL RASTREL_CALL ReadPage(const PageFile*, int32_t, PageMetadata**) { return Refuse<HGLOBAL>(); }

PageWriter* RASTREL_CALL CreatePages(const char*, const char*, const char*) { return Refuse<PageWriter*>(); }
PageWriter* RASTREL_CALL CreatePagesInMemory(const char*, const char*) { return Refuse<PageWriter*>(); }
PageWriter* RASTREL_CALL CreatePagesOnStream(const PageStream*, const char*, const char*) {
  return Refuse<PageWriter*>();
}
int RASTREL_CALL SetPageFileRules(PageWriter*, const PageFileRules*) { return Refuse<int>(); }
int RASTREL_CALL AppendPage(PageWriter*, HGLOBAL, const PageMetadata*) { return Refuse<int>(); }
int RASTREL_CALL FinishPages(PageWriter*) { return Refuse<int>(); }
void* RASTREL_CALL FinishPagesInMemory(PageWriter*, size_t*) { return Refuse<void*>(); }
void RASTREL_CALL FreePageBytes(void*) {}
void RASTREL_CALL AbandonPages(PageWriter*) {}
void RASTREL_CALL RemoveUnfinishedPages(void) {}
EncodedPage* RASTREL_CALL EncodePage(HGLOBAL, const PageMetadata*, const char*, const char*) {
  return Refuse<EncodedPage*>();
}
int RASTREL_CALL AppendEncodedPage(PageWriter*, const EncodedPage*) { return Refuse<int>(); }
void RASTREL_CALL FreeEncodedPage(EncodedPage*) {}

RawPage* RASTREL_CALL ReadRawPage(const PageFile*, int32_t, PageMetadata**) { return Refuse<RawPage*>(); }
void RASTREL_CALL FreeRawPage(RawPage*) {}
int RASTREL_CALL DescribeRawPage(const RawPage*, RawPageInfo*) { return Refuse<int>(); }
RawPage* RASTREL_CALL FlipRawPage(const RawPage*, int) { return Refuse<RawPage*>(); }
RawPage* RASTREL_CALL TurnRawPage(const RawPage*, int) { return Refuse<RawPage*>(); }
RawPage* RASTREL_CALL CropRawPage(const RawPage*, int, int, int, int) { return Refuse<RawPage*>(); }
int32_t RASTREL_CALL SplitRawPage(const RawPage*, int, int, RawPage**, int32_t) { return Refuse<int32_t>(); }
int RASTREL_CALL AppendRawPage(PageWriter*, const RawPage*, const PageMetadata*) { return Refuse<int>(); }
EncodedPage* RASTREL_CALL EncodeRawPage(const RawPage*, const PageMetadata*, const char*, const char*) {
  return Refuse<EncodedPage*>();
}

int32_t RASTREL_CALL CountPageFormats(void) { return 0; }
int RASTREL_CALL GetPageFormat(int32_t, PageFormat*) { return Refuse<int>(); }
int RASTREL_CALL GetPageFormatOption(int32_t, int32_t, PageFormatOption*) { return Refuse<int>(); }
int32_t RASTREL_CALL FindPageFormat(const char*) { return -1; }
const char* RASTREL_CALL PageFormatsJson(void) { return "[]"; }
