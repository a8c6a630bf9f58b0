// The vended object and its protocol table, in process.
#include "service/FerncastHelper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "service/QuillImExport.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast {
namespace {

TEST(QuillImExportProtocol, ListsTheTenOperationsInOrder) {
  const std::u16string_view expected[] = {
      u"PDFImageRepOfFile:",
      u"imageWithContentsOfFile:stringFromPDF:canUseSpotlight:",
      u"attributed:stringWithPDF:",
      u"posterImageForMovieWithFile:",
      u"attributedStringWithContentsOfFile:",
      u"searchableTextOfWebArchive:",
      u"writeRTFDData:toFile:",
      u"RTFDWithHTML:baseURL:allowRemoteRequest:charset:",
      u"metaDataForFile:",
      u"supportsFile:",
  };
  ASSERT_EQ(kQuillImExport.operations.size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(kQuillImExport.operations[i].selector, expected[i]);
    // One argument per colon.
    auto colons =
        static_cast<std::size_t>(std::count(expected[i].begin(), expected[i].end(), u':'));
    EXPECT_EQ(kQuillImExport.operations[i].arguments.size(), colons);
  }
}

TEST(FerncastHelperObject, AnswersEveryOperationOnMissingFilesWithNilNoOrNothing) {
  FerncastHelper helper;
  const std::pair<std::u16string_view, Array> requests[] = {
      {u"PDFImageRepOfFile:", {Value(u"/x.pdf")}},
      {u"imageWithContentsOfFile:stringFromPDF:canUseSpotlight:",
       {Value(u"/x.png"), Value(true), Value(false)}},
      {u"attributed:stringWithPDF:", {Value(false), Value(Null{})}},
      {u"posterImageForMovieWithFile:", {Value(u"/x.mov")}},
      {u"attributedStringWithContentsOfFile:", {Value(u"/x.rtf")}},
      {u"searchableTextOfWebArchive:", {Value(u"/x.webarchive")}},
      {u"writeRTFDData:toFile:", {Value(Data{1}), Value(u"/tmp/x.rtfd")}},
      {u"RTFDWithHTML:baseURL:allowRemoteRequest:charset:",
       {Value(Data{'<', 'p', '>'}), Value(Null{}), Value(true), Value(u"utf-8")}},
      {u"metaDataForFile:", {Value(u"/x.txt")}},
      {u"supportsFile:", {Value(u"/x.txt")}},
  };
  for (const auto& [selector, arguments] : requests) {
    ASSERT_TRUE(helper.respondsToSelector(selector));
    auto result = helper.invoke(selector, arguments);
    // A web archive that cannot be read gives an empty reply, the others nil or NO.
    EXPECT_TRUE(!result || *result == Value(false) || *result == Value(Dictionary{}))
        << std::string(selector.begin(), selector.end());
  }
  EXPECT_FALSE(helper._attributed(true, Data{1}, u"/x.pdf", true));
}

TEST(FerncastHelperHTML, OptionsFollowTheArguments) {
  FerncastHelper helper;
  HTMLRenderingOptions refused = helper._HTMLRenderingOptions(u"feed://example.test/a", false, u"");
  EXPECT_TRUE(refused.useWebKit);
  EXPECT_EQ(refused.timeout, 15.0f);
  EXPECT_EQ(refused.resourceLoadDelegate, &helper);
  ASSERT_TRUE(refused.baseURL);
  EXPECT_EQ(refused.baseURL->absoluteString(), u"http://example.test/a");
  EXPECT_FALSE(refused.textEncodingName) << "an empty name counts as none";

  HTMLRenderingOptions allowed =
      helper._HTMLRenderingOptions(u"ftp://example.test/", true, u"koi8-r");
  EXPECT_EQ(allowed.resourceLoadDelegate, nullptr) << "no hook when remote requests are allowed";
  EXPECT_FALSE(allowed.baseURL) << "a base that baseURLForWebKit rejects is left out";
  EXPECT_EQ(allowed.textEncodingName, u"koi8-r");
  EXPECT_FALSE(helper._HTMLRenderingOptions(std::nullopt, true, std::nullopt).baseURL);
}

TEST(FerncastHelperHTML, HookLetsOnlyLocalRequestsThrough) {
  FerncastHelper helper;
  HostTableResolver resolver(nullptr);
  resolver.addHostsFileText("203.0.113.9 far.test\n127.0.0.1 near.test\n");
  EXPECT_TRUE(helper.webView(*URL::URLWithString(u"http://near.test/a.png"), resolver));
  EXPECT_TRUE(helper.webView(*URL::URLWithString(u"file:///tmp/a.png"), resolver));
  EXPECT_FALSE(helper.webView(*URL::URLWithString(u"http://far.test/a.png"), resolver));
}

TEST(FerncastHelperHTML, RendersHTMLToRTFD) {
  FerncastHelper helper;
  std::string page = "<h1>Caf\xE9</h1><p>text <img src='http://203.0.113.9/x.png' alt=picture>";
  std::optional<Data> rtfd =
      helper.RTFDWithHTML(Data(page.begin(), page.end()), std::nullopt, false, u"iso-8859-1");
  ASSERT_TRUE(rtfd);
  std::optional<AttributedString> back = initWithRTFD(*rtfd, nullptr);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->string(), u"Caf\u00E9\ntext picture\n");
  EXPECT_FALSE(helper.RTFDWithHTML(std::nullopt, std::nullopt, false, std::nullopt));
  EXPECT_FALSE(helper.RTFDWithHTML(Data{}, std::nullopt, false, std::nullopt));
}

TEST(FerncastHelperObject, RefusesOtherSelectorsAndMismatchedArguments) {
  FerncastHelper helper;
  for (std::u16string_view selector :
       {u"stillBusy", u"supportsFile", u"_attributed:stringWithPDF:file:size:", u""}) {
    EXPECT_FALSE(helper.respondsToSelector(selector));
  }
  const std::pair<std::u16string_view, Array> bad[] = {
      {u"supportsFile:", {}},
      {u"supportsFile:", {Value(u"/a"), Value(u"/b")}},
      {u"supportsFile:", {Value(Null{})}},
      {u"attributed:stringWithPDF:", {Value(1), Value(Null{})}},
      {u"writeRTFDData:toFile:", {Value(u"text"), Value(u"/x")}},
      {u"noSuchOperation:", {Value(u"/x")}},
  };
  for (const auto& [selector, arguments] : bad) {
    try {
      helper.invoke(selector, arguments);
      ADD_FAILURE() << std::string(selector.begin(), selector.end());
    } catch (const RemoteException& e) {
      EXPECT_EQ(e.name(), "NSInvalidArgumentException");
    }
  }
}

}  // namespace
}  // namespace ferncast
