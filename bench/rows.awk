# Turns the output of the benchmarks into rows: | measure | figure | bar | spread | met |
# Reads kept.csv and, if there is one, fresh.csv. The spread of a ratio is one standard deviation,
# made from those of its two sides. Ends with 1 when a bar is missed by more than the documents
# explain.
BEGIN { FS = "," }

$1 ~ /_(median|mean|stddev)"$/ {
  gsub(/"/, "", $1)
  name = (FILENAME ~ /fresh\.csv$/ ? "fresh " : "") $1
  time[name] = $4
  rate[name] = $6
}

function row(label, figure, bar, spread, isMet) {
  printf "| %s | %.2f | %s | %s | %s |\n", label, figure, bar, spread, isMet
  if (isMet == "no") missed = 1
}
function deviation(name) { return time[name "_stddev"] / time[name "_mean"] }
function spread(a, b) { return sprintf("±%.0f %%", 100 * sqrt(deviation(a) ^ 2 + deviation(b) ^ 2)) }
# A row with the processor time of `upper` divided by that of `lower`; no row without both.
# `reason` explains a missed bar for figures up to `explained`.
function ratio(label, upper, lower, least, most, explained, reason,    figure, bar, isMet) {
  if (!((upper "_median") in time)) return
  figure = time[upper "_median"] / time[lower "_median"]
  bar = least ? "at least " least : most ? "at most " most : "none"
  isMet = least ? (figure >= least ? "yes" : "no") : most ? (figure <= most ? "yes" : "no") : ""
  if (isMet == "no" && figure <= explained) isMet = "no: " reason
  row(label, figure, bar, spread(upper, lower), isMet)
}

END {
  count = split("1000 100000", sizes, " ")
  for (i = 1; i <= count; ++i) {
    n = sizes[i]
    ratio("parse " n " items, speed / tinyxml2's", "ParseTinyxml2/" n, "ParseKupdate/" n, 2, 0)
    ratio("parse " n " items, speed / pugixml's", "ParsePugixml/" n, "ParseKupdate/" n, 1, 0)
    ratio("parse " n " items, speed / expat's (which builds no tree)", "ParseExpat/" n,
          "ParseKupdate/" n, 0, 0)
    ratio("write " n " items, speed / pugixml's", "WritePugixml/" n, "WriteKupdate/" n, 1, 0)
  }
  few = rate["ParseKupdate/1000_median"]
  many = rate["ParseKupdate/100000_median"]
  if (many) {
    row("parse, bytes a second at 100000 items / at 1000", many / few, "at least 0.8",
        spread("ParseKupdate/1000", "ParseKupdate/100000"), many / few >= 0.8 ? "yes" : "no")
  }
  # Beside pugixml: beside our own parser, each gain of its speed would look like a slower decision.
  parse = "ParsePugixml/100000"
  ratio("decide, 100000 items, half of them for others / pugixml parses them",
        "fresh Decide/HalfOurs/100000", "fresh " parse, 0, 0.1)
  ratio("the same, none for others", "fresh Decide/AllOurs/100000", "fresh " parse, 0, 0.1)
  ratio("the same, half for others, with memory that the process kept", "Decide/HalfOurs/100000",
        parse, 0, 0)
  ratio("read a value of a store / bare system calls", "StoreRead", "StoreReadBare", 0, 1.3, 1.6,
        "the rest is the library's own work (docs/benchmarks.md)")
  ratio("write a value of a store / bare system calls", "StoreWrite", "StoreWriteBare", 0, 1.3)
  exit missed
}
