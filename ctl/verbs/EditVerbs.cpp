#include "ctl/verbs/EditVerbs.h"

#include "ctl/line/Json.h"
#include "ctl/verbs/ApplyPlan.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/view/OwnRows.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

rt::String editorOf(Context& context) {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    rt::String editor = context.world().environment(variable).value_or("");
    if (!editor.empty()) return editor;
  }
  return "vi";
}

// The VM as 'export' shows it; one that cannot be read, as it stands.
rt::String documentOf(Context& context, const VmRow& row) {
  rt::String config;
  if (row.config)
    config = statedb::documentOf(*row.config);
  else if (const auto record = context.db().record(model::table::vmConfig, row.name))
    config = record->doc;
  const rt::String format = row.imageFormat();
  const rt::String json = R"({"name":)" + quoted(row.name) + R"(,"config":)" + config +
                          (format.empty() ? "" : R"(,"format":)" + quoted(format)) +
                          ownMembers(row.own.records) + "}";
  return JsonValue::parse(json) ? indented(json) : json + "\n";
}

// Lines that begin with #, for the reader alone.
rt::String headOf(const rt::String& name, const std::vector<rt::String>& problems) {
  rt::String head;
  for (const rt::String& problem : problems) head += "# " + visible(problem) + "\n";
  if (problems.empty())
    return "# This is " + visible(name) +
           ". Save it to change it; leave it as it is to change nothing.\n"
           "# Lines at the top that begin with # are passed over.\n";
  return head + "# So nothing was written. Mend it, or leave it as it is to give up.\n";
}

rt::String withoutHead(std::string_view text) {
  while (!text.empty() && text[0] == '#') {
    const size_t end = text.find('\n');
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return text;
}

// What the text makes of the VM: one step, or problems.
Plan planOf(Context& context, const Configuration& configuration, const VmRow& row,
            const rt::String& text) {
  ApplyDocument document = readApplyDocument(text);
  const bool isIt = document.vms.size() == 1 && document.vms.front()->name() == row.name;
  if (document.problems.empty() && !isIt)
    document.problems.push_back("name: must be '" + row.name +
                                "' and no other: 'vmctl add' makes one");
  if (!isIt) return {{}, document.problems};
  // What was there to be edited was of the image before.
  const bool isNewImage =
      !row.config || document.vms.front()->diskImage() != row.config->diskImage();
  if (isNewImage && document.formats[row.name] == row.imageFormat())
    document.formats.erase(row.name);
  Plan plan = planOf(configuration.rows(), document, Others::stay, context.world().limits);
  plan.problems.insert(plan.problems.begin(), document.problems.begin(), document.problems.end());
  return plan;
}

class Edit {
 public:
  Edit(Context& context, const VmRow& row)
      : context_(context), row_(row), file_(context.world().makeEditedFile("vmctl-" + row.name)) {
    for (const rt::Problem& problem : row.unreadable)
      problems_.push_back(row.name + ": " + problem.text());
  }

  // Until the text is sound, or left as it was.
  Exit run() {
    const rt::String editor = editorOf(context_);
    rt::String text = documentOf(context_, row_);
    while (true) {
      rt::String edited = withoutHead(file_->edit(editor, headOf(row_.name, problems_) + text));
      if (edited == text) return leave(text);
      text = std::move(edited);
      isEdited_ = true;
      const Configuration configuration(context_);
      const Plan plan = planOf(context_, configuration, row_, text);
      problems_ = plan.problems;
      if (problems_.empty()) return write(plan.steps.front(), text);
    }
  }

 private:
  Exit leave(const rt::String& text) {
    if (problems_.empty()) {
      context_.tell(row_.name + ": nothing changed");
      return Exit::done;
    }
    std::vector<rt::String> sentences = problems_;
    if (isEdited_)
      sentences.push_back(row_.name + ": nothing was written; your text is in " +
                          file_->keep(text));
    throw Refusal(Exit::invalid, sentences);
  }

  Exit write(const Step& step, const rt::String& text) {
    if (step.kind == StepKind::keep) {
      context_.tell(row_.name + ": nothing changed");
      return Exit::done;
    }
    try {
      statedb::Transaction transaction;
      transaction.guard(model::table::vmConfig, row_.name, row_.revision);
      putVm(context_, transaction, step);
      context_.db().commit(transaction);
    } catch (const statedb::ConflictError&) {
      const rt::String path = file_->keep(text);
      throw Refusal(Exit::conflict, row_.name +
                                        ": somebody else changed it meanwhile, and nothing was "
                                        "written; your text is in " +
                                        path + ": 'vmctl apply -f' writes it all the same");
    }
    context_.tell(row_.name + ": changed: " + changesText(step));
    warnOfImage(context_, *step.config, formatOf(step));
    complainOfDelay(context_);
    return Exit::done;
  }

  Context& context_;
  const VmRow row_;
  const std::unique_ptr<EditedFile> file_;
  std::vector<rt::String> problems_;
  bool isEdited_ = false;
};

}  // namespace

Exit editVm(Context& context, const Arguments& arguments) {
  return Edit(context, requiredVm(context, arguments.words().front())).run();
}

}  // namespace ctl
