// The rewrites of HtmlExtensions.h: each one scan that copies text and kept tags to an output.
#include "markup/Entities.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "webcontent/HtmlExtensions.h"
#include "webcontent/HtmlScan.h"

namespace ferncast {

using html::scan;
using html::Tag;

namespace {

bool nameIsUpper(const Tag& tag, std::string_view upperName) {
  return equalsNoCase(tag.name(), upperName);
}

// ---- Base element ----

struct SetBaseURLHandler {
  Range base;
  std::size_t insertion = kNotFound;

  bool onTag(const Tag& tag) {
    if (tag.nameIs(u"body")) return true;
    if (tag.nameIs(u"base") && tag.attribute("HREF")) {
      base = tag.range();
      return true;
    }
    if (tag.isOpening() && tag.nameIs(u"head")) insertion = tag.range().end();
    return false;
  }
};

std::u16string baseElement(std::u16string_view url) {
  return u"<BASE href=\"" + stringByConvertingCharactersToStandardEntities(url) + u"\"/>\n";
}

// ---- Strip tags ----

struct StripTagsHandler {
  std::u16string out;
  bool onTag(const Tag& tag) {
    std::u16string_view text = tag.text();
    if (text.empty()) return false;
    if (!html::endsInWhite(out)) out += u' ';
    out += text;
    return false;
  }
};

struct StripTagHandler {
  std::string_view name;
  std::optional<std::u16string> out;
  bool onTag(const Tag& tag) {
    if (tag.kind != TagKind::kEndOfText && nameIsUpper(tag, name)) {
      if (!out) {
        out.emplace(tag.string.substr(0, tag.tagLocation));
      } else {
        out->append(tag.text());
      }
    } else if (out) {
      out->append(tag.text());
      out->append(tag.whole());
    }
    return false;
  }
};

// ---- Element bodies ----

struct StripTagBodiesHandler {
  const std::vector<std::u16string>* patterns;
  bool except;
  std::u16string out;
  std::u16string element;  // the open element's name; depth counts its nesting
  std::size_t depth = 0;

  bool matches(const Tag& tag) const {
    std::u16string_view whole = tag.whole();
    for (const std::u16string& pattern : *patterns) {
      if (!pattern.empty() && pattern.size() <= whole.size() &&
          equalsNoCase(whole.substr(0, pattern.size()), pattern))
        return true;
    }
    return false;
  }

  bool sameName(const Tag& tag) const { return equalsNoCase(tag.name(), element); }

  // A script or style element that the scanner delivered with its end tag.
  static bool isWholeElement(const Tag& tag) {
    if (!tag.nameIs(u"script") && !tag.nameIs(u"style")) return false;
    std::u16string_view whole = tag.whole();
    std::size_t last = whole.rfind(u'<');
    if (last == 0 || last == std::u16string_view::npos || last + 1 >= whole.size() ||
        whole[last + 1] != u'/')
      return false;
    return startsWithNoCase(whole.substr(last + 2), tag.name());
  }

  void endElement() {
    if (except) out += u'\n';
  }

  bool onTag(const Tag& tag) {
    if (depth == 0) {
      bool starts =
          tag.kind == TagKind::kTag && tag.isOpening() && !tag.isSelfClosing() && matches(tag);
      if (!except) out.append(tag.text());
      if (!starts) {
        if (!except) out.append(tag.whole());
        return false;
      }
      if (except) out.append(tag.whole());
      if (isWholeElement(tag)) {
        endElement();
      } else {
        element = tag.name();
        depth = 1;
      }
      return false;
    }
    if (except) {
      out.append(tag.text());
      out.append(tag.whole());
    }
    if (tag.kind == TagKind::kTag && sameName(tag)) {
      if (!tag.isOpening() || tag.isSelfClosing()) {
        if (--depth == 0) endElement();
      } else {
        ++depth;
      }
    }
    return false;
  }
};

// ---- Objects and links ----

struct StripObjectsHandler {
  static constexpr std::u16string_view kNames[] = {u"param", u"applet", u"embed",  u"iframe",
                                                   u"audio", u"video",  u"canvas", u"object"};
  bool replaceImages = false;
  bool open[8] = {};
  std::u16string out;

  bool inside() const {
    for (bool flag : open)
      if (flag) return true;
    return false;
  }

  bool onTag(const Tag& tag) {
    if (!inside()) out.append(tag.text());
    if (tag.kind == TagKind::kEndOfText) return false;
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
      if (tag.nameIs(kNames[i])) {
        open[i] = tag.isOpening() && !tag.isSelfClosing();
        return false;
      }
    }
    if (tag.nameIs(u"script") || tag.nameIs(u"link")) return false;
    if (replaceImages && tag.nameIs(u"img")) {
      std::optional<std::u16string> text = tag.attribute("ALT");
      if (!text) text = tag.attribute("TITLE");
      if (text) {
        if (!html::endsInWhite(out)) out += u' ';
        out += *text;
        out += u'\n';
      }
      return false;
    }
    out.append(tag.whole());
    return false;
  }
};

struct StripLinksHandler {
  bool inAnchor = false;
  std::u16string out;
  bool onTag(const Tag& tag) {
    if (!inAnchor) out.append(tag.text());
    if (tag.nameIs(u"a")) {
      inAnchor = tag.isOpening() && !tag.isSelfClosing();
    } else if (!tag.nameIs(u"link")) {
      out.append(tag.whole());
    }
    return false;
  }
};

struct StripTagAttributesHandler {
  std::string_view name;
  std::u16string out;

  static void appendAttribute(std::u16string& out, std::u16string_view name,
                              const std::optional<std::u16string>& value) {
    if (!value) return;
    char16_t quote = value->find(u'"') == std::u16string::npos ? u'"' : u'\'';
    out += u' ';
    out += name;
    out += u'=';
    out += quote;
    out += *value;
    out += quote;
  }

  bool onTag(const Tag& tag) {
    out.append(tag.text());
    if (tag.kind != TagKind::kTag || !tag.isOpening() || !nameIsUpper(tag, name)) {
      out.append(tag.whole());
      return false;
    }
    // Only the opening tag is rebuilt; a script or style body that comes with it stays.
    std::u16string_view whole = tag.whole();
    std::size_t openingLength = std::min(whole.find(u'>') + 1, whole.size());
    Range opening{tag.tagLocation, openingLength};
    out += u'<';
    out += tag.name();
    appendAttribute(out, u"href", attributeOfTagCharacters(tag.characters, opening, "HREF"));
    appendAttribute(out, u"src", attributeOfTagCharacters(tag.characters, opening, "SRC"));
    if (openingLength >= 3 && whole[openingLength - 2] == u'/') out += u'/';
    out += u'>';
    out.append(whole.substr(openingLength));
    return false;
  }
};

}  // namespace

std::u16string stringBySettingBaseURL(std::u16string_view html,
                                      std::optional<std::u16string_view> url) {
  if (!url) return std::u16string(html);
  SetBaseURLHandler handler;
  scan(html, handler);
  std::u16string result(html);
  if (handler.base.found()) {
    result.erase(handler.base.location, handler.base.length);
    if (!url->empty()) result.insert(handler.base.location, baseElement(*url));
  } else if (handler.insertion != kNotFound && !url->empty()) {
    result.insert(handler.insertion, baseElement(*url));
  }
  return result;
}

std::u16string stringByAddingBaseURL(std::u16string_view html, std::u16string_view url) {
  std::u16string result(html);
  if (url.empty()) return result;
  SetBaseURLHandler handler;
  scan(html, handler);
  if (!handler.base.found() && handler.insertion != kNotFound)
    result.insert(handler.insertion, baseElement(url));
  return result;
}

std::u16string stripTags(std::u16string_view html) {
  StripTagsHandler handler;
  handler.out.reserve(html.size());
  scan(html, handler);
  return std::move(handler.out);
}

std::optional<std::u16string> stripTag(std::u16string_view html, std::string_view upperName) {
  StripTagHandler handler{upperName, std::nullopt};
  scan(html, handler);
  return std::move(handler.out);
}

std::optional<std::u16string> stripTagBodies(std::u16string_view html,
                                             const std::vector<std::u16string>& patterns,
                                             bool except) {
  bool anyPattern = false;
  for (const std::u16string& pattern : patterns)
    anyPattern = anyPattern || !pattern.empty();
  if (!anyPattern || html.empty()) {
    if (except) return std::nullopt;
    return std::u16string(html);
  }
  StripTagBodiesHandler handler{&patterns, except, {}, {}, 0};
  if (!except) handler.out.reserve(html.size());
  scan(html, handler);
  if (except && handler.out.empty()) return std::nullopt;
  return std::move(handler.out);
}

std::u16string stripTagBodies(std::u16string_view html,
                              const std::vector<std::u16string>& patterns) {
  return *stripTagBodies(html, patterns, false);
}

std::optional<std::u16string> stripTagBodiesExcept(std::u16string_view html,
                                                   const std::vector<std::u16string>& patterns) {
  return stripTagBodies(html, patterns, true);
}

std::u16string stripObjectsAndReplaceImages(std::u16string_view html, bool replaceImages) {
  StripObjectsHandler handler;
  handler.replaceImages = replaceImages;
  handler.out.reserve(html.size());
  scan(html, handler);
  return std::move(handler.out);
}

std::u16string stripLinks(std::u16string_view html) {
  StripLinksHandler handler;
  handler.out.reserve(html.size());
  scan(html, handler);
  return std::move(handler.out);
}

std::u16string stripAttributesOfTag(std::u16string_view html, std::string_view upperName) {
  StripTagAttributesHandler handler{upperName, {}};
  handler.out.reserve(html.size());
  scan(html, handler);
  return std::move(handler.out);
}

}  // namespace ferncast
