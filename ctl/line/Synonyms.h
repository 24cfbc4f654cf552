// What who comes from virsh, docker, kubectl or incus types, and what to type here.
#pragma once

#include <span>
#include <string_view>

namespace ctl {

struct Synonym {
  std::string_view theirs;  // verbs of one word or two: "create,define,new"
  std::string_view ours;    // a sentence: "'vmctl add NAME --disk FILE' makes a VM"
};

// Where one of theirs does several things, or what nothing here does, the sentence says so. None
// leads from a word that is harmless to a verb that is not.
std::span<const Synonym> synonyms();

// The same of an option.
struct OptionSynonym {
  std::string_view theirs;  // "--json,-j"
  std::string_view option;  // of verbs that take this one of ours; empty: of all
  std::string_view verb;    // of these verbs alone: "list,show"; empty: of all
  std::string_view says;
};
std::span<const OptionSynonym> optionSynonyms();

}  // namespace ctl
