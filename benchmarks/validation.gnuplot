# Draws the time per validation over the number of roots. The variables "data" and "image" name the files:
#     gnuplot -e "data='points.txt'; image='performance.svg'" validation.gnuplot
stats data skip 1 nooutput
set terminal svg size 800,480 font "sans-serif,13" background "white"
set output image
set xlabel "roots in the trust store"
set ylabel "microseconds per validation"
set logscale xy
set yrange [20:]
set xrange [0.8:12500]
set grid
set key below maxcols 3 samplen 2
set linetype 5 linecolor rgb "#d55e00"
set datafile missing "?"
plot for [column=2:STATS_columns] data using 1:column with linespoints linewidth 2 pointsize 0.8 title columnheader(column)
