// The text of a statistics file, read and written.
#include <utility>

#include "stat/stat_holder.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "xml/xml_node.h"

namespace {

// Calls `take` with the text of each child `item` of the section.
template <class Take>
void ForEachItem(const XmlNode& section, std::string_view item, Take take) {
  for (const XmlNode* child = section.FirstChild(); child; child = child->Next()) {
    if (child->Name() == item) take(child->Text());
  }
}

// All sections log under the name of the operation that callers know.
constexpr std::string_view kOperation = "TStatHolder::ParseXML";

// One section as it is written: its items are numbered from 1.
class SectionWriter {
 public:
  SectionWriter(XmlNode* root, std::string_view name, std::string_view item)
      : section_(root->AddChild(name)), item_(item) {}

  void Add(std::string_view text) {
    XmlNode& node = section_.AddChild(item_);
    node.SetAttribute("ord", ++count_);
    node.SetValue(text);
  }

 private:
  XmlNode& section_;
  std::string_view item_;
  std::int64_t count_ = 0;
};

}  // namespace

bool TStatHolder::ParseXML(std::string text) {
  XmlNode root;
  const bool whole = LoadXml(std::move(text), &root);
  LOG_D << "Root: " << root.Name();
  if (root.Name() != "statistics") {
    LOG_E << "Can't find 'statistics' node.";
    return false;
  }
  ReadSections(root);
  return whole;
}

void TStatHolder::ReadSections(const XmlNode& root) {
  if (const XmlNode* const states = root.FindChild("application-states")) {
    ForEachItem(*states, "state",
                [&](auto word) { states_.push_back(TAppStateHolder::Import(word)); });
  } else {
    LogAs(kOperation, __LINE__, "E:") << "Error reading state list.";
  }
  if (const XmlNode* const params = root.FindChild("optional-params")) {
    ForEachItem(*params, "param", [&](auto param) { optionalParams_.emplace_back(param); });
  } else {
    LogAs(kOperation, __LINE__, "E:") << "Error reading optional params.";
  }
  if (const XmlNode* const params = root.FindChild("unique-params")) {
    ForEachItem(*params, "param", [&](auto param) { SetUniqueParam(param); });
  } else {
    LogAs(kOperation, __LINE__, "E:") << "Error reading unique params.";
  }
  if (const XmlNode* const actions = root.FindChild("actions")) {
    ForEachItem(*actions, "action", [&](auto action) { actions_.emplace_back(action); });
  } else {
    LogAs(kOperation, __LINE__, "E:") << "Error reading actions.";
  }
  // An unknown last state was written as an empty text.
  const std::string_view lastState = TextOf(root.FindChild("last-state"));
  lastState_ = lastState.empty() ? AppState::kDayuse : TAppStateHolder::Import(lastState);
  lastParam_ = TextOf(root.FindChild("last-param"));
  lastAction_ = TextOf(root.FindChild("last-action"));
  const XmlNode* const firstDate = root.FindChild("ts");
  firstDate_ = TextOf(firstDate);
  SetConfirmed(firstDate && firstDate->Attribute("confirmed") == "true");
}

std::string TStatHolder::MakeXML() const {
  XmlNode root;
  // Files in the field carry this declaration. The texts are bytes, whatever it says.
  root.SetCodePage(kCodePage1251);
  root.SetDeclaration();
  root.SetName("statistics");
  WriteSections(&root);
  return root.Serialise();
}

void TStatHolder::WriteSections(XmlNode* root) const {
  SectionWriter states(root, "application-states", "state");
  for (const AppState state : states_) states.Add(TAppStateHolder::Text(state));
  SectionWriter optionalParams(root, "optional-params", "param");
  for (const std::string& param : optionalParams_) optionalParams.Add(param);
  SectionWriter uniqueParams(root, "unique-params", "param");
  for (const auto& [name, value] : uniqueParams_) {
    uniqueParams.Add(std::string(name).append("=").append(value));
  }
  SectionWriter actions(root, "actions", "action");
  for (const std::string& action : actions_) actions.Add(action);
  root->AddChild("last-state").SetValue(TAppStateHolder::Text(lastState_));
  root->AddChild("last-param").SetValue(lastParam_);
  root->AddChild("last-action").SetValue(lastAction_);
  XmlNode& firstDate = root->AddChild("ts");
  firstDate.SetValue(firstDate_);
  if (confirmed_) firstDate.SetAttribute("confirmed", std::string_view("true"));
}
