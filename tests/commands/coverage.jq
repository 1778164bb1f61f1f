# What a run saw of the commands: `jq -r --slurpfile list LIST --slurpfile runs RUNS`, LIST from `station list --json`,
# RUNS from `station run --record`. Faults begin with "!".
[$runs[].lines[]] as $lines
| [$list[0][] | [.names[] as $name | ("success", "failure") as $case | $name + {
    $case,
    seen: any($lines[]; .code == $name.code and .status == $case),
    reason: first(($lines[] | select(.code == $name.code and .left_out == $case).reason), null)
  }]] as $commands
| ($commands | flatten) as $all
| def row: "\(.code)  \(.name + " " * ([0, 18 - (.name | length)] | max))  \(.case)";
  def saw($case): [$commands[] | select(all(.[] | select(.case == $case); .seen))] | length;
  [$all[] | select(.reason)] as $left_out
| "\($commands | length) commands (\([$all[].code] | unique | length) codes): the success of \(saw("success")) and the failure of \(saw("failure")) were seen, \($left_out | length) cases are out of reach in a sandbox:",
  ($left_out[] | "  \(row)  \(.reason)"),
  ($all[] | select(.seen == (.reason != null)) | if .seen then "! \(row)  left out, and seen all the same" else "! \(row)  neither seen nor left out for a reason" end)
