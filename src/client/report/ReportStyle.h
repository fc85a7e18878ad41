#pragma once

/// The look of a report: system fonts, light and dark as the reader's system has it, one column on a
/// telephone, nothing that needs a mouse, and paper that is white.
inline constexpr char kReportStyle[] = R"css(
:root {
  color-scheme: light dark;
  --page: #f4f5f7; --card: #ffffff; --text: #1b2430; --quiet: #5b6675; --line: #dde2e8; --track: #eef1f4;
  --c0: #2f6fdb; --c1: #e0762f; --c2: #23906a; --c3: #9b51c4; --c4: #b88a00; --c5: #cf4257; --c6: #7b8798;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #12161c; --card: #1b212a; --text: #e6ebf2; --quiet: #9aa6b6; --line: #2d3643; --track: #252d38;
    --c0: #6fa5ff; --c1: #ffa766; --c2: #5ccfa3; --c3: #cf92ee; --c4: #e5c14f; --c5: #ff8494; --c6: #97a3b5;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 16px/1.5 system-ui, "Segoe UI", Roboto,
  "DejaVu Sans", sans-serif; -webkit-text-size-adjust: 100%; }
main { max-width: 1060px; margin: 0 auto; padding: 32px 20px 48px; }
h1 { font-size: 1.75rem; line-height: 1.2; margin: 0 0 4px; letter-spacing: -0.01em; }
h2 { font-size: 1.15rem; margin: 0 0 2px; overflow-wrap: anywhere; }
h3 { font-size: 0.85rem; margin: 20px 0 8px; color: var(--quiet); font-weight: 600; overflow-wrap: anywhere; }
p { margin: 0 0 12px; overflow-wrap: anywhere; }
.quiet { color: var(--quiet); font-size: 0.9rem; }
section { background: var(--card); border: 1px solid var(--line); border-radius: 12px; padding: 20px 22px;
  margin-top: 20px; }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(150px, 1fr)); gap: 12px; margin-top: 22px; }
.tile { background: var(--card); border: 1px solid var(--line); border-radius: 12px; padding: 14px 16px; }
.tile b { display: block; font-size: 1.5rem; line-height: 1.25; font-weight: 650; font-variant-numeric: tabular-nums;
  overflow-wrap: anywhere; }
.tile span { color: var(--quiet); font-size: 0.85rem; }
.pair { display: grid; grid-template-columns: 1fr 1fr; gap: 20px; }
.pair > section { min-width: 0; }
.plot { display: grid; grid-template-columns: max-content 1fr; column-gap: 10px; margin-top: 14px; }
.plot svg { display: block; width: 100%; min-width: 0; }
.ticks { display: flex; flex-direction: column; justify-content: space-between; align-items: flex-end; font-size: 0.75rem;
  color: var(--quiet); font-variant-numeric: tabular-nums; line-height: 1; }
.axis { grid-column: 2; display: flex; justify-content: space-between; gap: 8px; font-size: 0.75rem;
  color: var(--quiet); margin-top: 6px; white-space: nowrap; }
.legend { display: flex; flex-wrap: wrap; gap: 4px 18px; margin: 14px 0 0; padding: 0; list-style: none;
  font-size: 0.85rem; }
.legend li { overflow-wrap: anywhere; }
.key { display: inline-block; width: 0.75em; height: 0.75em; border-radius: 3px; margin-right: 0.45em; }
.bars { display: grid; grid-template-columns: fit-content(14em) minmax(40px, 1fr) max-content; gap: 6px 12px;
  align-items: center; font-size: 0.9rem; margin-top: 10px; }
.rest { margin: 14px 0 0; }
.bars .name { overflow-wrap: anywhere; line-height: 1.3; }
.bars .number { text-align: right; font-variant-numeric: tabular-nums; }
.bars svg { display: block; width: 100%; height: 12px; border-radius: 4px; background: var(--track); }
.grid { stroke: var(--line); stroke-width: 1; vector-effect: non-scaling-stroke; }
.values { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(280px, 100%), 1fr)); gap: 0 32px; }
table { border-collapse: collapse; width: 100%; font-size: 0.85rem; font-variant-numeric: tabular-nums; }
th, td { text-align: left; padding: 5px 14px 5px 0; border-bottom: 1px solid var(--line); }
th { color: var(--quiet); font-weight: 600; }
td.n, th.n { text-align: right; padding-right: 0; white-space: nowrap; }
details { margin-top: 14px; }
summary { cursor: pointer; color: var(--quiet); font-size: 0.85rem; }
summary:focus-visible { outline: 2px solid var(--c0); outline-offset: 3px; border-radius: 3px; }
footer { color: var(--quiet); font-size: 0.8rem; margin-top: 28px; }
.tag { display: inline-block; border: 1px solid var(--line); border-radius: 999px; padding: 0 9px; font-size: 0.75rem;
  color: var(--quiet); vertical-align: 2px; margin-left: 8px; font-weight: 500; }
@media (max-width: 680px) {
  main { padding: 20px 14px 32px; }
  .pair { grid-template-columns: 1fr; gap: 0; }
  .tiles { grid-template-columns: 1fr 1fr; gap: 10px; }
  .tile b { font-size: 1.2rem; }
  section { padding: 16px; }
  .axis .wide { display: none; }
  .bars { grid-template-columns: fit-content(10em) minmax(30px, 1fr) max-content; }
}
@media print {
  :root { --page: #fff; --card: #fff; --text: #000; --quiet: #444; --line: #bbb; --track: #eee;
    --c0: #2f6fdb; --c1: #e0762f; --c2: #23906a; --c3: #9b51c4; --c4: #b88a00; --c5: #cf4257; --c6: #7b8798; }
  body { font-size: 11pt; print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  main { max-width: none; padding: 0; }
  section, .tile { break-inside: avoid; }
  summary { display: none; }
}
)css";
