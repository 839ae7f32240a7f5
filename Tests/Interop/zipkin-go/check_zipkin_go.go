// Reads back the library's Zipkin v2 JSON with zipkin-go, Zipkin's Go library (Debian's
// golang-github-openzipkin-zipkin-go-dev): each span of spans-v2.json must decode into its span
// model and, written again by zipkin-go, be the same JSON document as ours, so that no field is
// lost, renamed or read differently on the way. (The B3 headers are read back by OpenTelemetry
// JS, in all three of their forms.)
//
// Usage: go run check_zipkin_go.go WRITER_PROGRAM...   Prints "N passed, M failed".
package main

import (
	"encoding/json"
	"fmt"
	"io/ioutil"
	"os"
	"os/exec"
	"path/filepath"
	"reflect"

	"github.com/openzipkin/zipkin-go/model"
)

func main() {
	folder, err := ioutil.TempDir("", "qen-zipkin-go-")
	if err != nil {
		panic(err)
	}
	defer os.RemoveAll(folder)
	writer := exec.Command(os.Args[1], append(os.Args[2:], folder)...)
	writer.Stdout, writer.Stderr = os.Stdout, os.Stderr
	if err := writer.Run(); err != nil {
		panic(err)
	}
	encoded, err := ioutil.ReadFile(filepath.Join(folder, "spans-v2.json"))
	if err != nil {
		panic(err)
	}
	var ours []map[string]interface{}
	var theirs []model.SpanModel
	if err := json.Unmarshal(encoded, &ours); err != nil {
		panic(err)
	}
	if err := json.Unmarshal(encoded, &theirs); err != nil || len(ours) == 0 {
		fmt.Printf("FAILED: zipkin-go decodes no span of our v2 JSON: %v\n", err)
		os.Exit(1)
	}
	passed, failed := 0, 0
	for index := range theirs {
		rewritten, _ := json.Marshal(theirs[index])
		var again map[string]interface{}
		json.Unmarshal(rewritten, &again)
		if reflect.DeepEqual(again, ours[index]) {
			passed++
		} else {
			failed++
			fmt.Printf("FAILED: span %d\n ours: %v\n read: %s\n", index, ours[index], rewritten)
		}
	}
	fmt.Printf("%d passed, %d failed\n", passed, failed)
	if failed > 0 || len(theirs) != len(ours) {
		os.Exit(1)
	}
}
