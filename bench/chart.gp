# The peer comparison at N = 200 as grouped bars: for each table row, each peer's time divided
# by ours on a log axis (above the 1.0 line ours leads), the issue's targets as black marks.
#   gnuplot -e "json='build-bench/bench_peers.json'; out='bench/chart.svg'" bench/chart.gp
# Reads the JSON through bench/chart.jq (jq); run from the repository root.
if (!exists("json")) json = 'build-bench/bench_peers.json'
if (!exists("out")) out = 'bench/chart.svg'
data = '< jq -r -f bench/chart.jq ' . json

set terminal svg size 1100,560 font 'sans,12' background rgb 'white'
set output out
set title 'Peer time / libQKLMessage time at N = 200 (above 1: libQKLMessage leads)'
set ylabel 'peer time / our time (log)'
set logscale y
set format y '%g'
set grid ytics
set key outside right top
set style fill solid 0.85 border -1
set xtics nomirror rotate by 20 right scale 0
set bmargin 7

width = 0.2
x(row, column) = row + (column - 1.5) * width
colours = '#4e79a7 #f28e2b #59a14f #9c9c9c'
peers = 'pugixml libxml2 libbson memcpy'
stats data using 1 nooutput
set xrange [-0.6 : STATS_max + 0.6]
set arrow from graph 0, first 1 to graph 1, first 1 nohead lc 'black' lw 1.5 front

plot for [c = 0:3] data using (column(2) == c ? x($1, c) : NaN):(1):(x($1, c) - width / 2):(x($1, c) + width / 2):(1):3 \
         with boxxyerror lc rgb word(colours, c + 1) title word(peers, c + 1), \
     data using (x($1, $2) - width / 2):4:(width):(0) with vectors nohead lw 4 lc 'black' title 'target', \
     data using 1:(NaN):xtic(5) notitle
