#include "ctl/Program.h"

#include "ctl/verbs/Verbs.h"
#include "guest/Variables.h"
#include "guest/VmFiles.h"

namespace ctl {

namespace {

Directories directoriesOf(const World& world, const Arguments& arguments) {
  const auto directory = [&](const char* option, const char* variable, const char* byDefault) {
    if (const auto given = arguments.value(option)) return *given;
    const rt::String set = world.environment(variable).value_or("");
    return set.empty() ? rt::String(byDefault) : set;
  };
  return {directory("state-dir", guest::variable::stateDir, guest::defaultStateDir),
          directory("run-dir", guest::variable::runDir, guest::defaultRunDir)};
}

Arguments argumentsOf(std::span<const rt::String> arguments) {
  try {
    return Arguments(arguments);
  } catch (const UnknownOption& unknown) {
    throw unknownOption(unknown.option(), arguments);
  }
}

Exit runVerb(const Verb& verb, const Arguments& arguments, World& world) {
  requireFit(verb, arguments);
  Context context(world, directoriesOf(world, arguments), formatOf(verb, arguments));
  return verb.run(context, arguments);
}

Exit runArguments(Arguments arguments, World& world) {
  const bool isHelp = !arguments.words().empty() && arguments.words().front() == "help";
  if (isHelp) arguments.wordsDel(1);
  const bool wantsHelp = isHelp || arguments.has("help");
  if (arguments.words().empty()) {
    if (arguments.has("version")) {
      const std::vector<rt::String> version{"version"};
      return runArguments(Arguments(version), world);
    }
    (wantsHelp ? world.out : world.err) << generalHelp();
    return wantsHelp ? Exit::done : Exit::usage;
  }
  const bool isHalf = arguments.words().size() == 1 && !verbNamed(arguments.words().front());
  if (const rt::String help = helpOf(arguments.words().front());
      wantsHelp && isHalf && !help.empty()) {
    world.out << help;
    return Exit::done;
  }
  const Verb& verb = takeVerb(arguments);
  if (!wantsHelp) return runVerb(verb, arguments, world);
  world.out << helpOf(verb);
  return Exit::done;
}

}  // namespace

Exit run(std::span<const rt::String> arguments, World& world) {
  const auto complain = [&](const rt::String& sentence) {
    world.err << "vmctl: " << visible(sentence) << '\n';
  };
  try {
    return runArguments(argumentsOf(arguments), world);
  } catch (const Refusal& refusal) {
    for (const rt::String& sentence : refusal.sentences()) complain(sentence);
    return refusal.exit();
  } catch (const statedb::Error& error) {
    complain(error.what());
    return error.trouble() == statedb::Trouble::invalid ? Exit::invalid : Exit::unreachable;
  } catch (const rt::Exception& exception) {
    complain(exception.what());
    return Exit::failed;
  }
}

}  // namespace ctl
