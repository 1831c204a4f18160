# The plot of scripts/bench.sh: per change, the engine's own time and the
# time in p4 commands, and peak memory, against the size of the history.
#   gnuplot -e "datafile='latest.dat'; outfile='latest.png'; title='...'" plot.gp
# Columns of the data: changes, then for latency 0 and 5 ms: ours ms/change,
# p4 ms/change, peak RSS MB, staging MB.
set terminal pngcairo size 1200,600 font ",10"
set output outfile
set multiplot layout 1,2 title title
set logscale x
set xrange [700:30000]
set xtics ("1k" 1000, "5k" 5000, "20k" 20000)
set xlabel "history size (changes)"
set key below vertical maxrows 2
set offsets 0, 0, graph 0.1, 0
set grid

set title "time per change"
set ylabel "ms per change"
set yrange [0:*]
plot datafile using 1:2 with linespoints lw 2 pt 7 lc rgb "#1f77b4" title "ours (engine + module), latency 0", \
     datafile using 1:3 with linespoints lw 2 pt 5 lc rgb "#d62728" title "server's (p4 children), latency 0", \
     datafile using 1:6 with linespoints lw 2 pt 6 dt 2 lc rgb "#1f77b4" title "ours, latency 5 ms", \
     datafile using 1:7 with linespoints lw 2 pt 4 dt 2 lc rgb "#d62728" title "server's, latency 5 ms"

set title "memory"
set ylabel "MB"
plot datafile using 1:4 with linespoints lw 2 pt 7 lc rgb "#2ca02c" title "engine peak RSS, latency 0", \
     datafile using 1:8 with linespoints lw 2 pt 6 dt 2 lc rgb "#2ca02c" title "engine peak RSS, latency 5 ms", \
     datafile using 1:5 with linespoints lw 2 pt 5 lc rgb "#9467bd" title "staging files (largest)"
unset multiplot
