// Tests of what needs no page: words, lines, and what a stream of "vmctl watch" says. Run in the
// browser by page_test.py. `failures()` resolves to what failed, a line each.
import { History, pathOf } from "./load.js";
import { Lines, parsed } from "./lines.js";
import { Watched } from "./live.js";
import { age, compare, counts, inTime, isReport, matches, nextOf, nextWords, partsOf, plain, saidOf, sentence, sorted, valueOf } from "./words.js";

const web = { name: "web1", wanted: "running", actual: "crashed", severity: "bad", since: 50,
  reasons: [{ text: "QEMU was killed" }], next: { kind: "command", command: "vmctl start web1" },
  config: { vnicConfig: { nic00: { model: "e1000", macAddr: "52:54:00:00:00:01", intfName: "Ethernet1" } } } };

const tests = {
  ageIsWrittenAsVmctlDoes: () => equal(
    [0, 59, 60, 3599, 3600, 86399, 86400, 100 * 86400].map(seconds => age(1000, 1000 + seconds)),
    ["0s", "59s", "1m00s", "59m59s", "1h00m", "23h59m", "1d00h", "100d"]),
  ageOfWhatIsYetToComeIsNone: () => equal(age(1000, 900), "0s"),
  whatIsDueIsNow: () => equal([inTime(5, 5), inTime(18, 5)], ["now", "in 13s"]),
  nextOfADeadlineSaysHowLong: () => equal(nextOf({ next: { text: "is switched off", at: 20 } }, 7), "is switched off in 13s"),
  nextThatIsToTypeCanBeDone: () => equal(nextWords(web), ["start", "--", "web1"]),
  nextMayHaveOptions: () => equal(nextWords({ name: "a", next: { command: "vmctl restart a --now" } }), ["restart", "--now", "--", "a"]),
  aNameIsNoOption: () => equal(nextWords({ name: "--all", next: { command: "vmctl start --all" } }), ["start", "--", "--all"]),
  anAddressIsReadByItsParts: () => equal([partsOf("#/vm/a%2Fb/logs"), partsOf(""), partsOf("#/vm/%")], [["vm", "a/b", "logs"], [""], [""]]),
  aFieldIsReadWhereItsTableStands: () => {
    const vm = { config: { memory: 64, vnicConfig: { nic00: { macAddr: "m" } } }, format: "raw", limits: { cpuWeight: 50 } };
    const read = (path, table, usual) => valueOf(vm, path, { table, usual });
    equal([read("memory", "vmConfig", "256"), read("cpuWeight", "vmLimits", "100"), read("restart", "vmPolicy", "no"),
      read("format", "vmImage", ""), read("vnicConfig.nic00.macAddr", "vmConfig", null)], ["64", "50", "no", "raw", "m"]);
  },
  nextOfAnotherProgramCannot: () => equal(nextWords({ name: "a", next: { command: "systemctl start vmagentd" } }), null),
  nextThatNamesAnotherCannot: () => equal(nextWords({ name: "a", next: { command: "vmctl start b" } }), null),
  nextThatNeedsWordsOfOursCannot: () => equal(nextWords({ name: "a", next: { command: "vmctl edit a" } }), null),
  namesAreSortedByTheirNumbers: () => equal(
    sorted([{ name: "vm10" }, { name: "vm2" }], "name", false).map(vm => vm.name), ["vm2", "vm10"]),
  theWorstComesFirst: () => equal(
    sorted([{ name: "a", severity: "ok" }, { name: "b", severity: "bad" }], "actual", false).map(vm => vm.name), ["b", "a"]),
  anOrderCanBeTurnedRound: () => equal(
    sorted([{ name: "a", since: 1 }, { name: "b", since: 9 }], "since", true).map(vm => vm.name), ["a", "b"]),
  comparingIsByTheFirstThatDiffers: () => equal([compare([1, "b"], [1, "a"]) > 0, compare([1], [1])], [true, 0]),
  aFilterIsOfAllItsWords: () => equal(
    ["web crash", "ethernet1", "52:54", "web ethernet2", ""].map(typed => matches(web, typed)), [true, true, true, false, true]),
  ofAnUnknownSeverityIsTheWorst: () => equal(counts([{ severity: null }, { severity: "ok" }]), { bad: 1, busy: 0, note: 0, ok: 1 }),
  whatIsSaidOfAFieldStandsWithIt: () => {
    const said = saidOf("vmctl: web1: memory: '1' is refused: must be 16\nvmctl: web1: warning: x\nvmctl: no daemon\n", "web1", ["memory"]);
    equal([[...said.fields], said.rest], [[["memory", ["'1' is refused: must be 16"]]], ["warning: x", "no daemon"]]);
  },
  aFieldIsNotAnotherThatBeginsLikeIt: () => {
    const said = saidOf("vmctl: a: memoryReserve: bad\n", "a", ["memory", "memoryReserve"]);
    equal([...said.fields.keys()], ["memoryReserve"]);
  },
  ofAGuestsOutputItsWordsStay: () => equal(plain("\x1bc\x1b[?7l\x1b[2J\x1b[0mBIOS\x1b]0;title\x07\r\n\tok\x08 ä"), "BIOS\n\tok ä"),
  anAnswerOfATerminalIsNoKey: () => equal(
    ["\x1b[10;5R", "\x1b[?1;2c", "\x1b[0n", "\x1b]10;rgb:0/0/0\x07", "\x1bP1$r0m\x1b\\", "a", "\x1b", "\x1b[A", "\x1bOP", "\x1b[15~"].map(isReport),
    [true, true, true, true, true, false, false, false, false, false]),
  aClauseBecomesASentence: () => equal(["nic00: no line", "Done.", ""].map(sentence), ["Nic00: no line.", "Done.", ""]),
  linesComeWhole: () => {
    const lines = new Lines();
    equal([lines.take("a\nb"), lines.take("c\n\n"), lines.take("d")], [["a"], ["bc", ""], []]);
  },
  aLineThatIsNoJsonIsNothing: () => equal([parsed("{"), parsed("[1]")], [null, [1]]),
  whatIsPutIsThereUntilItIsDeleted: () => {
    const watched = new Watched();
    equal(watched.heard({ op: "put", vm: { name: "a" } }), ["a"]);
    equal([...watched.vms.keys()], ["a"]);
    equal(watched.heard({ op: "delete", vm: { name: "a" } }), ["a"]);
    equal([...watched.vms.keys()], []);
  },
  whatWentWhileNobodyListenedIsGoneOnceSynced: () => {
    const watched = new Watched();
    watched.heard({ op: "put", vm: { name: "a" } });
    watched.heard({ op: "put", vm: { name: "b" } });
    watched.heard({ op: "synced" });
    watched.begin();
    watched.heard({ op: "put", vm: { name: "b" } });
    equal([...watched.vms.keys()], ["a", "b"]);
    equal(watched.heard({ op: "synced" }), ["a"]);
    equal([...watched.vms.keys()], ["b"]);
  },
  aPlotEndsNowAndHasGapsWhereNobodyLooked: () => {
    const samples = [{ at: 0, cpu: 0 }, { at: 5, cpu: 1 }, { at: 10, cpu: null }, { at: 15, cpu: 0.5 }, { at: 600, cpu: 2 }];
    equal(pathOf(samples, "cpu", 1, { width: 600, height: 10 }), "M0.0 10.0L5.0 0.0M15.0 5.0M600.0 0.0");
  },
  whatWasTakenIsKeptForTenMinutes: () => {
    const history = new History();
    const line = (at, ...names) => ({ clockMs: at * 1000, guests: names.map(name => ({ name, cpu: { used: 1 }, memory: { bytes: 2, maxBytes: 4 } })) });
    for (const at of [0, 300, 600]) history.heard(line(at, "a", ...(at === 0 ? ["b"] : [])));
    equal(history.samplesOf("a").map(sample => sample.at), [0, 300, 600]);
    history.heard(line(905, "a"));
    equal(history.samplesOf("a").map(sample => sample.at), [600, 905]);
    equal([history.samplesOf("b"), history.lastOf("b", 905), history.lastOf("a", 905).memory], [[], undefined, 2]);
  },
  aBeatTellsWhetherTheDaemonRuns: () => {
    const watched = new Watched();
    watched.heard({ op: "beat", stale: true });
    equal(watched.isStale, true);
    watched.heard({ op: "beat" });
    equal(watched.isStale, false);
  },
};

export async function failures() {
  const failed = [];
  for (const [name, test] of Object.entries(tests)) {
    try {
      await test();
    } catch (error) {
      failed.push(`${name}: ${error.message}`);
    }
  }
  return { count: Object.keys(tests).length, failed };
}

function equal(found, wanted) {
  const texts = [found, wanted].map(each => JSON.stringify(each));
  if (texts[0] !== texts[1]) throw new Error(`found ${texts[0]}, wanted ${texts[1]}`);
}
