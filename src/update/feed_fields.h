// The values that an update in the feed brings into the store of the update found, one row each.
#ifndef KUPDATE_UPDATE_FEED_FIELDS_H_
#define KUPDATE_UPDATE_FEED_FIELDS_H_

#include "layout/keys.h"

/// The place where the parser finds a value.
enum class FieldSource {
  kOwn,       ///< an element that targeted updates have for themselves
  kCommon,    ///< an element that all updates of an item share
  kComputed,  ///< chosen by RssParser from several elements
};

/// How a value is stored.
enum class FieldForm {
  kBytes,    ///< as it stands in the feed
  kDecoded,  ///< as UTF-8, from the feed's encoding
  kNumber,
};

struct FeedField {
  const char* key;
  const char* element;  ///< without its prefix; empty for a computed value
  FieldSource source;
  FieldForm form;
};

/// In the order in which the values are written.
inline constexpr FeedField kFeedFields[] = {
    {key::kDistroUrl, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kDistroMd5, "md5", FieldSource::kOwn, FieldForm::kBytes},
    {key::kDistroArgs, "distargs", FieldSource::kOwn, FieldForm::kBytes},
    {key::kDistroStarter, "diststart", FieldSource::kOwn, FieldForm::kDecoded},
    {key::kMsiArgs, "msiargs", FieldSource::kOwn, FieldForm::kDecoded},
    {key::kDialogsUrl, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kDialogsDate, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kDialogsStyle, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kTitle, "", FieldSource::kComputed, FieldForm::kDecoded},
    {key::kDescription, "", FieldSource::kComputed, FieldForm::kDecoded},
    {key::kPlatform, "platform", FieldSource::kCommon, FieldForm::kBytes},
    {key::kFavicon, "favicon", FieldSource::kCommon, FieldForm::kBytes},
    {key::kLocaleUrl, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kLocaleDate, "", FieldSource::kComputed, FieldForm::kBytes},
    {key::kUacDialog, "uac_dlg", FieldSource::kOwn, FieldForm::kBytes},
    {key::kDistroSize, "distsize", FieldSource::kOwn, FieldForm::kNumber},
    {key::kHomepage, "", FieldSource::kComputed, FieldForm::kBytes},
};

#endif  // KUPDATE_UPDATE_FEED_FIELDS_H_
