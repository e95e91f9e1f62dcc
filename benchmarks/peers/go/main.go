// Measures validations by Go's crypto/x509 over the number of roots.
//
//	validation FOLDER ROOTS...
//
// The folder holds chain.pem, the leaf and its intermediates, and roots.pem. For each number the program trusts that
// many of the first roots. It prints its name, and for each number the seconds of processor time per validation,
// those of the garbage collector included.
package main

import (
	"crypto/x509"
	"encoding/pem"
	"fmt"
	"log"
	"os"
	"path/filepath"
	"runtime"
	"sort"
	"strconv"
	"strings"
	"syscall"
	"time"
)

const (
	repetitions       = 9
	timePerRepetition = 50 * time.Millisecond
)

func read(path string) []*x509.Certificate {
	rest, err := os.ReadFile(path)
	if err != nil {
		log.Fatal(err)
	}
	var certificates []*x509.Certificate
	for {
		var block *pem.Block
		block, rest = pem.Decode(rest)
		if block == nil {
			return certificates
		}
		certificate, err := x509.ParseCertificate(block.Bytes)
		if err != nil {
			log.Fatal(err)
		}
		certificates = append(certificates, certificate)
	}
}

func poolOf(certificates []*x509.Certificate) *x509.CertPool {
	pool := x509.NewCertPool()
	for _, certificate := range certificates {
		pool.AddCert(certificate)
	}
	return pool
}

// processorTime returns the time that all threads of the process have used.
func processorTime() time.Duration {
	var usage syscall.Rusage
	if err := syscall.Getrusage(syscall.RUSAGE_SELF, &usage); err != nil {
		log.Fatal(err)
	}
	return time.Duration(usage.Utime.Nano() + usage.Stime.Nano())
}

// measureOnce returns the seconds per validation over one repetition.
func measureOnce(leaf *x509.Certificate, options x509.VerifyOptions) float64 {
	start := processorTime()
	end := time.Now().Add(timePerRepetition)
	validations := 0
	for time.Now().Before(end) {
		if _, err := leaf.Verify(options); err != nil {
			log.Fatal(err)
		}
		validations++
	}
	return (processorTime() - start).Seconds() / float64(validations)
}

func median(leaf *x509.Certificate, options x509.VerifyOptions) float64 {
	measureOnce(leaf, options) // fills the caches
	var times []float64
	for repetition := 0; repetition < repetitions; repetition++ {
		times = append(times, measureOnce(leaf, options))
	}
	sort.Float64s(times)
	return times[len(times)/2]
}

func main() {
	folder := os.Args[1]
	chain := read(filepath.Join(folder, "chain.pem"))
	roots := read(filepath.Join(folder, "roots.pem"))
	fmt.Println("Go", strings.TrimPrefix(runtime.Version(), "go"))
	for _, word := range os.Args[2:] {
		count, err := strconv.Atoi(word)
		if err != nil {
			log.Fatal(err)
		}
		options := x509.VerifyOptions{
			Roots:         poolOf(roots[:count]),
			Intermediates: poolOf(chain[1:]),
			KeyUsages:     []x509.ExtKeyUsage{x509.ExtKeyUsageAny},
		}
		fmt.Println(count, median(chain[0], options))
	}
}
